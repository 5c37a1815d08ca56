#pragma once

#include <string>

namespace Orb {

// Checks a lens signature: a P-384 ECDSA signature, in strict DER, over a
// SHA-384 digest. The application verifies downloaded lenses with it and the
// lens server checks what it signs before handing it out.
class SignatureCheck
{
public:
    // publicKeyDer is a DER SubjectPublicKeyInfo; only its last 97 bytes, the
    // uncompressed point, are used. The signature must be a DER
    // ECDSA-Sig-Value with minimal positive integers and nothing after it.
    static bool verifyDigest(const std::string &sha384Digest, const std::string &derSignature,
                             const std::string &publicKeyDer);
};

} // namespace Orb
