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
#include <orb/signaturecheck.h>
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
    return Orb::SignatureCheck::verifyDigest(sha384(checksum + lensId), *signatureDer, *keyDer);
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
