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

SingleInstanceGuard::SingleInstanceGuard(const QString &key)
    : m_key(key), m_sharedMemory(sharedMemoryKey(key)), m_semaphore(semaphoreKey(key), 1)
{}

SingleInstanceGuard::~SingleInstanceGuard()
{
    release();
}

bool SingleInstanceGuard::isAnotherRunning()
{
    if (m_sharedMemory.isAttached())
        return false;
    m_semaphore.acquire();
    const bool attached = m_sharedMemory.attach();
    if (attached)
        m_sharedMemory.detach();
    m_semaphore.release();
    return attached;
}

bool SingleInstanceGuard::tryToRun()
{
    if (isAnotherRunning())
        return false;
    m_semaphore.acquire();
    const bool created = m_sharedMemory.create(8);
    m_semaphore.release();
    if (!created) {
        release();
        return false;
    }
    return true;
}

void SingleInstanceGuard::release()
{
    m_semaphore.acquire();
    if (m_sharedMemory.isAttached())
        m_sharedMemory.detach();
    m_semaphore.release();
}

} // namespace VCam
