#include "lenssignature.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <glintdeployment.h>
#include <memory>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

namespace VCam {

namespace {

constexpr int kPointSize = 97;      // 0x04, X, Y of 48 bytes each
constexpr int kMaxIntegerSize = 48; // r and s after one optional leading zero

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

// One INTEGER of the signature at pos, in strict DER: tag 0x02, a short
// length that keeps the element inside the data, a positive value in the
// fewest bytes (a leading zero only where the next byte has its top bit
// set, and then skipped).
bool readInteger(const QByteArray &der, int &pos, int minimumLeft, QByteArray &out)
{
    if (der.size() - pos < minimumLeft || static_cast<quint8>(der[pos]) != 0x02)
        return false;
    const int length = static_cast<quint8>(der[pos + 1]);
    pos += 2;
    if (length == 0 || length >= 0x80 || length > der.size() - pos)
        return false;
    out = der.mid(pos, length);
    pos += length;
    const auto first = static_cast<quint8>(out[0]);
    if (first & 0x80)
        return false; // negative
    if (first == 0) {
        if (out.size() == 1 || !(static_cast<quint8>(out[1]) & 0x80))
            return false; // zero, or a zero byte that was not needed
        out.remove(0, 1);
    }
    return out.size() <= kMaxIntegerSize;
}

// Applies the structural rules to a DER ECDSA-Sig-Value and yields r and s.
// The sequence must fill the data exactly, and s end it.
bool parseSignature(const QByteArray &der, QByteArray &r, QByteArray &s)
{
    if (der.size() < 3 || static_cast<quint8>(der[0]) != 0x30)
        return false;
    const int length = static_cast<quint8>(der[1]);
    if (length >= 0x80 || length + 2 != der.size())
        return false;
    int pos = 2;
    return readInteger(der, pos, 4, r) && readInteger(der, pos, 2, s) && pos == der.size();
}

using PkeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

PkeyPtr publicKeyFromPoint(const QByteArray &point)
{
    PkeyPtr key(nullptr, &EVP_PKEY_free);
    OSSL_PARAM_BLD *builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_utf8_string(builder, OSSL_PKEY_PARAM_GROUP_NAME, "secp384r1", 0);
    OSSL_PARAM_BLD_push_octet_string(builder, OSSL_PKEY_PARAM_PUB_KEY, point.constData(), point.size());
    OSSL_PARAM *params = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr);
    EVP_PKEY *raw = nullptr;
    if (params && ctx && EVP_PKEY_fromdata_init(ctx) == 1 &&
        EVP_PKEY_fromdata(ctx, &raw, EVP_PKEY_PUBLIC_KEY, params) == 1)
        key.reset(raw);
    EVP_PKEY_CTX_free(ctx);
    OSSL_PARAM_free(params);
    OSSL_PARAM_BLD_free(builder);
    return key;
}

QByteArray encodeSignature(const QByteArray &r, const QByteArray &s)
{
    ECDSA_SIG *sig = ECDSA_SIG_new();
    BIGNUM *rn = BN_bin2bn(reinterpret_cast<const unsigned char *>(r.constData()), r.size(), nullptr);
    BIGNUM *sn = BN_bin2bn(reinterpret_cast<const unsigned char *>(s.constData()), s.size(), nullptr);
    QByteArray der;
    if (sig && rn && sn && ECDSA_SIG_set0(sig, rn, sn) == 1) {
        rn = sn = nullptr; // owned by sig now
        unsigned char *out = nullptr;
        const int length = i2d_ECDSA_SIG(sig, &out);
        if (length > 0)
            der = QByteArray(reinterpret_cast<const char *>(out), length);
        OPENSSL_free(out);
    }
    BN_free(rn);
    BN_free(sn);
    ECDSA_SIG_free(sig);
    return der;
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
    QByteArray r, s;
    if (!parseSignature(derSignature, r, s) || publicKeyDer.size() < kPointSize)
        return false;
    const PkeyPtr key = publicKeyFromPoint(publicKeyDer.right(kPointSize));
    const QByteArray canonical = encodeSignature(r, s);
    if (!key || canonical.isEmpty())
        return false;
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key.get(), nullptr);
    const bool ok =
        ctx && EVP_PKEY_verify_init(ctx) == 1 &&
        EVP_PKEY_verify(ctx, reinterpret_cast<const unsigned char *>(canonical.constData()), canonical.size(),
                        reinterpret_cast<const unsigned char *>(sha384Digest.constData()),
                        sha384Digest.size()) == 1;
    EVP_PKEY_CTX_free(ctx);
    return ok;
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
