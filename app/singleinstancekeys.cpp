#include "singleinstanceguard.h"

#include <QCryptographicHash>

namespace VCam {

namespace {

QString sha1Hex(const QString &text)
{
    return QString::fromLatin1(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha1).toHex());
}

} // namespace

QString SingleInstanceGuard::sharedMemoryKey(const QString &key)
{
    return sha1Hex(key + QStringLiteral("sharedMem"));
}

QString SingleInstanceGuard::semaphoreKey(const QString &key)
{
    return sha1Hex(key + QStringLiteral("memLock"));
}

} // namespace VCam
