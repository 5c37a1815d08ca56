#include "lenssignature.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <glintdeployment.h>
#include <openssl/evp.h>
#include <orb/signaturecheck.h>

namespace VCam {

namespace {

// SHA-256 of a whole file through OpenSSL, which uses the CPU's hashing
// instructions where there are any (lens folders can be large).
QString fileSha256(const QString &path, bool *ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly);
    if (!*ok)
        return {};
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    *ok = ctx && EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr) == 1;
    QByteArray buffer(1 << 16, Qt::Uninitialized);
    while (*ok && !file.atEnd()) {
        const qint64 read = file.read(buffer.data(), buffer.size());
        *ok = read >= 0 && EVP_DigestUpdate(ctx, buffer.constData(), size_t(read)) == 1;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    *ok = *ok && EVP_DigestFinal_ex(ctx, digest, &length) == 1;
    EVP_MD_CTX_free(ctx);
    if (!*ok)
        return {};
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(digest), int(length)).toHex().toUpper());
}

} // namespace

QString directoryChecksum(const QString &dirPath)
{
    if (!QFileInfo(dirPath).isDir())
        return {};
    QStringList digests;
    QDirIterator it(dirPath, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (info.isSymLink())
            return {};
        if (!info.isFile())
            continue;
        bool ok = false;
        digests << fileSha256(info.filePath(), &ok);
        if (!ok)
            return {};
    }
    digests.sort();
    const QByteArray joined = digests.join(QString()).toUtf8();
    return QString::fromLatin1(
        QCryptographicHash::hash(joined, QCryptographicHash::Sha256).toHex().toUpper());
}

bool verifyDigestSignature(const QByteArray &sha384Digest, const QByteArray &derSignature,
                           const QByteArray &publicKeyDer)
{
    return Orb::SignatureCheck::verifyDigest(sha384Digest.toStdString(), derSignature.toStdString(),
                                             publicKeyDer.toStdString());
}

bool verifyLensSignature(const LensId &lensId, const QString &dirPath, const QString &signatureBase64,
                         const QString &publicKeyBase64)
{
    const QString checksum = directoryChecksum(dirPath);
    if (checksum.isEmpty())
        return false;
    const QByteArray digest =
        QCryptographicHash::hash((checksum + lensId).toUtf8(), QCryptographicHash::Sha384);
    return verifyDigestSignature(digest, QByteArray::fromBase64(signatureBase64.toLatin1()),
                                 QByteArray::fromBase64(publicKeyBase64.toLatin1()));
}

QString defaultLensVerificationKey()
{
    return QString::fromStdString(glint::deployment(glint::kLensVerificationKey));
}

} // namespace VCam
