#include "signaturecheck.h"

#include <memory>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

namespace Orb {

namespace {

constexpr size_t kPointSize = 97;      // 0x04, X, Y of 48 bytes each
constexpr size_t kMaxIntegerSize = 48; // r and s after one optional leading zero

// One INTEGER of the signature at pos, in strict DER: tag 0x02, a short
// length that keeps the element inside the data, a positive value in the
// fewest bytes (a leading zero only where the next byte has its top bit
// set, and then skipped).
bool readInteger(const std::string &der, size_t &pos, size_t minimumLeft, std::string &out)
{
    if (der.size() - pos < minimumLeft || static_cast<unsigned char>(der[pos]) != 0x02)
        return false;
    const size_t length = static_cast<unsigned char>(der[pos + 1]);
    pos += 2;
    if (length == 0 || length >= 0x80 || length > der.size() - pos)
        return false;
    out = der.substr(pos, length);
    pos += length;
    const auto first = static_cast<unsigned char>(out[0]);
    if (first & 0x80)
        return false; // negative
    if (first == 0) {
        if (out.size() == 1 || !(static_cast<unsigned char>(out[1]) & 0x80))
            return false; // zero, or a zero byte that was not needed
        out.erase(0, 1);
    }
    return out.size() <= kMaxIntegerSize;
}

// The sequence must fill the data exactly, and s end it.
bool parseSignature(const std::string &der, std::string &r, std::string &s)
{
    if (der.size() < 3 || static_cast<unsigned char>(der[0]) != 0x30)
        return false;
    const size_t length = static_cast<unsigned char>(der[1]);
    if (length >= 0x80 || length + 2 != der.size())
        return false;
    size_t pos = 2;
    return readInteger(der, pos, 4, r) && readInteger(der, pos, 2, s) && pos == der.size();
}

using PkeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

PkeyPtr publicKeyFromPoint(const std::string &point)
{
    PkeyPtr key(nullptr, &EVP_PKEY_free);
    OSSL_PARAM_BLD *builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_utf8_string(builder, OSSL_PKEY_PARAM_GROUP_NAME, "secp384r1", 0);
    OSSL_PARAM_BLD_push_octet_string(builder, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size());
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

// Re-encodes (r, s) canonically so that OpenSSL verifies exactly the two
// numbers the parser above accepted.
std::string encodeSignature(const std::string &r, const std::string &s)
{
    ECDSA_SIG *sig = ECDSA_SIG_new();
    BIGNUM *rn = BN_bin2bn(reinterpret_cast<const unsigned char *>(r.data()), int(r.size()), nullptr);
    BIGNUM *sn = BN_bin2bn(reinterpret_cast<const unsigned char *>(s.data()), int(s.size()), nullptr);
    std::string der;
    if (sig && rn && sn && ECDSA_SIG_set0(sig, rn, sn) == 1) {
        rn = sn = nullptr; // owned by sig now
        unsigned char *out = nullptr;
        const int length = i2d_ECDSA_SIG(sig, &out);
        if (length > 0)
            der.assign(reinterpret_cast<const char *>(out), size_t(length));
        OPENSSL_free(out);
    }
    BN_free(rn);
    BN_free(sn);
    ECDSA_SIG_free(sig);
    return der;
}

} // namespace

bool SignatureCheck::verifyDigest(const std::string &sha384Digest, const std::string &derSignature,
                                  const std::string &publicKeyDer)
{
    std::string r, s;
    if (!parseSignature(derSignature, r, s) || publicKeyDer.size() < kPointSize)
        return false;
    const PkeyPtr key = publicKeyFromPoint(publicKeyDer.substr(publicKeyDer.size() - kPointSize));
    const std::string canonical = encodeSignature(r, s);
    if (!key || canonical.empty())
        return false;
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key.get(), nullptr);
    const bool ok =
        ctx && EVP_PKEY_verify_init(ctx) == 1 &&
        EVP_PKEY_verify(ctx, reinterpret_cast<const unsigned char *>(canonical.data()), canonical.size(),
                        reinterpret_cast<const unsigned char *>(sha384Digest.data()),
                        sha384Digest.size()) == 1;
    EVP_PKEY_CTX_free(ctx);
    return ok;
}

} // namespace Orb
