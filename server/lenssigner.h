#pragma once

#include <optional>
#include <string>

typedef struct evp_pkey_st EVP_PKEY;

namespace glint::server {

// Checksums lens folders and signs or verifies them with a P-384 key.
//
// The directory checksum is the upper-case hex SHA-256 of the concatenated,
// sorted upper-case hex SHA-256 digests of every regular file below the
// folder; file names take no part. A signature is a DER ECDSA signature over
// SHA-384(checksum + lens id), carried as base64.
class LensSigner
{
public:
    // Empty when a file cannot be read.
    static std::string directoryChecksum(const std::string &directory);

    // Loads a PEM private key; the signer is invalid when loading fails.
    explicit LensSigner(const std::string &privateKeyPemPath);
    ~LensSigner();
    LensSigner(const LensSigner &) = delete;
    LensSigner &operator=(const LensSigner &) = delete;

    bool isValid() const { return m_key != nullptr; }
    const std::string &error() const { return m_error; }

    // Base64 DER signature of checksum + lensId; empty on failure.
    std::string sign(const std::string &checksum, const std::string &lensId) const;
    // The 160-character base64 DER SubjectPublicKeyInfo of the key.
    std::string publicKeyBase64() const;

    // Verifies as the application does: the last 97 bytes of the DER public
    // key are the curve point, the DER signature is parsed by hand.
    static bool verify(const std::string &checksum, const std::string &lensId,
                       const std::string &signatureBase64, const std::string &publicKeyBase64);

    // Writes a new P-384 private key as PEM; returns false with a reason.
    static bool generateKey(const std::string &pemPath, std::string *error);

private:
    EVP_PKEY *m_key = nullptr;
    std::string m_error;
};

} // namespace glint::server
