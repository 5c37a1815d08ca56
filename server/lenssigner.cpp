#include "lenssigner.h"

#include "base64.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <vector>

namespace fs = std::filesystem;

namespace glint::server {

namespace {

std::string toHexUpper(const unsigned char *data, size_t size)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        out.push_back(digits[data[i] >> 4]);
        out.push_back(digits[data[i] & 0x0f]);
    }
    return out;
}

std::string sha256Hex(const std::string &bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    return toHexUpper(digest, length);
}

std::optional<std::string> fileSha256Hex(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr);
    std::vector<char> buffer(1 << 16);
    while (in) {
        in.read(buffer.data(), buffer.size());
        EVP_DigestUpdate(ctx, buffer.data(), static_cast<size_t>(in.gcount()));
    }
    const bool failed = in.bad();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(ctx, digest, &length);
    EVP_MD_CTX_free(ctx);
    if (failed)
        return std::nullopt;
    return toHexUpper(digest, length);
}

std::string sha384(const std::string &message)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(message.data(), message.size(), digest, &length, EVP_sha384(), nullptr);
    return std::string(reinterpret_cast<char *>(digest), length);
}

// One INTEGER of an ECDSA-Sig-Value: tag 0x02, a short length, the value
// with at most one leading zero skipped. Advances pos past the element.
bool readInteger(const std::string &der, size_t &pos, std::string &value)
{
    if (pos + 2 > der.size() || static_cast<unsigned char>(der[pos]) != 0x02)
        return false;
    size_t length = static_cast<unsigned char>(der[pos + 1]);
    pos += 2;
    if (length == 0 || pos + length > der.size())
        return false;
    if (der[pos] == 0 && length > 1) {
        ++pos;
        --length;
    }
    value = der.substr(pos, length);
    pos += length;
    return true;
}

bool parseSignature(const std::string &der, std::string &r, std::string &s)
{
    if (der.size() < 3 || static_cast<unsigned char>(der[0]) != 0x30)
        return false;
    if (static_cast<size_t>(static_cast<unsigned char>(der[1])) + 2 > der.size())
        return false;
    size_t pos = 2;
    if (der.size() - pos < 4)
        return false;
    if (!readInteger(der, pos, r) || r.size() >= 49)
        return false;
    return readInteger(der, pos, s) && s.size() < 49;
}

EVP_PKEY *publicKeyFromPoint(const std::string &point)
{
    OSSL_PARAM_BLD *builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_utf8_string(builder, OSSL_PKEY_PARAM_GROUP_NAME, "secp384r1", 0);
    OSSL_PARAM_BLD_push_octet_string(builder, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size());
    OSSL_PARAM *params = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr);
    EVP_PKEY *key = nullptr;
    if (ctx && EVP_PKEY_fromdata_init(ctx) == 1)
        EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params);
    EVP_PKEY_CTX_free(ctx);
    OSSL_PARAM_free(params);
    OSSL_PARAM_BLD_free(builder);
    return key;
}

// Re-encodes (r, s) canonically so that OpenSSL verifies exactly the two
// numbers the hand parser accepted.
std::string encodeSignature(const std::string &r, const std::string &s)
{
    ECDSA_SIG *sig = ECDSA_SIG_new();
    BIGNUM *br = BN_bin2bn(reinterpret_cast<const unsigned char *>(r.data()), int(r.size()), nullptr);
    BIGNUM *bs = BN_bin2bn(reinterpret_cast<const unsigned char *>(s.data()), int(s.size()), nullptr);
    ECDSA_SIG_set0(sig, br, bs);
    unsigned char *out = nullptr;
    const int length = i2d_ECDSA_SIG(sig, &out);
    std::string der = length > 0 ? std::string(reinterpret_cast<char *>(out), length) : std::string();
    OPENSSL_free(out);
    ECDSA_SIG_free(sig);
    return der;
}

} // namespace

std::string LensSigner::directoryChecksum(const std::string &directory)
{
    std::error_code ec;
    if (!fs::is_directory(directory, ec))
        return {};
    std::vector<std::string> digests;
    for (fs::recursive_directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
        if (!it->is_regular_file(ec))
            continue;
        auto digest = fileSha256Hex(it->path());
        if (!digest)
            return {};
        digests.push_back(std::move(*digest));
    }
    if (ec)
        return {};
    std::sort(digests.begin(), digests.end());
    std::string joined;
    for (const auto &digest : digests)
        joined += digest;
    return sha256Hex(joined);
}

LensSigner::LensSigner(const std::string &privateKeyPemPath)
{
    FILE *file = fopen(privateKeyPemPath.c_str(), "rb");
    if (!file) {
        m_error = "cannot open key file " + privateKeyPemPath;
        return;
    }
    m_key = PEM_read_PrivateKey(file, nullptr, nullptr, nullptr);
    fclose(file);
    if (!m_key) {
        m_error = "not a PEM private key: " + privateKeyPemPath;
        return;
    }
    char group[64] = {};
    size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(m_key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group, &length) !=
            1 ||
        std::string(group) != "secp384r1") {
        m_error = "the key is not on the P-384 curve: " + privateKeyPemPath;
        EVP_PKEY_free(m_key);
        m_key = nullptr;
    }
}

LensSigner::~LensSigner()
{
    EVP_PKEY_free(m_key);
}

std::string LensSigner::sign(const std::string &checksum, const std::string &lensId) const
{
    if (!m_key || checksum.empty())
        return {};
    const std::string message = checksum + lensId;
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    std::string signature;
    size_t length = 0;
    if (EVP_DigestSignInit(ctx, nullptr, EVP_sha384(), nullptr, m_key) == 1 &&
        EVP_DigestSign(ctx, nullptr, &length, reinterpret_cast<const unsigned char *>(message.data()),
                       message.size()) == 1) {
        signature.resize(length);
        if (EVP_DigestSign(ctx, reinterpret_cast<unsigned char *>(signature.data()), &length,
                           reinterpret_cast<const unsigned char *>(message.data()), message.size()) == 1)
            signature.resize(length);
        else
            signature.clear();
    }
    EVP_MD_CTX_free(ctx);
    return signature.empty() ? std::string() : Base64::encode(signature);
}

std::string LensSigner::publicKeyBase64() const
{
    if (!m_key)
        return {};
    unsigned char *der = nullptr;
    const int length = i2d_PUBKEY(m_key, &der);
    std::string out = length > 0 ? Base64::encode(std::string(reinterpret_cast<char *>(der), length)) : "";
    OPENSSL_free(der);
    return out;
}

bool LensSigner::verify(const std::string &checksum, const std::string &lensId,
                        const std::string &signatureBase64, const std::string &publicKeyBase64)
{
    const auto keyDer = Base64::decode(publicKeyBase64);
    const auto signatureDer = Base64::decode(signatureBase64);
    if (!keyDer || keyDer->size() < 97 || !signatureDer)
        return false;
    std::string r, s;
    if (!parseSignature(*signatureDer, r, s))
        return false;
    EVP_PKEY *key = publicKeyFromPoint(keyDer->substr(keyDer->size() - 97));
    if (!key)
        return false;
    const std::string digest = sha384(checksum + lensId);
    const std::string canonical = encodeSignature(r, s);
    EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(key, nullptr);
    const bool ok =
        ctx && EVP_PKEY_verify_init(ctx) == 1 &&
        EVP_PKEY_verify(ctx, reinterpret_cast<const unsigned char *>(canonical.data()), canonical.size(),
                        reinterpret_cast<const unsigned char *>(digest.data()), digest.size()) == 1;
    EVP_PKEY_CTX_free(ctx);
    EVP_PKEY_free(key);
    return ok;
}

bool LensSigner::generateKey(const std::string &pemPath, std::string *error)
{
    EVP_PKEY *key = EVP_EC_gen("secp384r1");
    if (!key) {
        if (error)
            *error = "key generation failed";
        return false;
    }
    FILE *file = fopen(pemPath.c_str(), "wb");
    bool ok = false;
    if (file) {
        fs::permissions(pemPath, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::replace);
        ok = PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
        ok = (fclose(file) == 0) && ok;
    }
    EVP_PKEY_free(key);
    if (!ok && error)
        *error = "cannot write " + pemPath;
    return ok;
}

} // namespace glint::server
