#include "lensresigner.h"

#include "catalogue.h"
#include "lenssigner.h"

namespace glint::server {

namespace {
const char *kSigningKey = "signing_public_key";
}

int LensResigner::ensureSignedWith(Catalogue &catalogue, const LensSigner &signer)
{
    if (!signer.isValid())
        return 0;
    const std::string publicKey = signer.publicKeyBase64();
    if (catalogue.stateValue(kSigningKey) == publicKey)
        return 0;
    int count = 0;
    for (const auto &lens : catalogue.all()) {
        catalogue.setSignature(lens.id, signer.sign(lens.checksum, lens.id));
        ++count;
    }
    catalogue.setStateValue(kSigningKey, publicKey);
    return count;
}

} // namespace glint::server
