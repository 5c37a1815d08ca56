#include "lenspacker.h"

#include "lenssigner.h"
#include "zipwriter.h"

namespace glint::server {

bool LensPacker::pack(const std::string &folder, const LensSigner &signer, const std::string &zipPath,
                      PackedLens *result, std::string *error)
{
    std::string reason;
    auto fail = [&](const std::string &text) {
        if (error)
            *error = folder + ": " + text;
        return false;
    };
    PackedLens packed;
    if (!Orb::LensManifest::load(folder, packed.manifest, reason))
        return fail(reason);
    if (!signer.isValid())
        return fail(signer.error());
    packed.checksum = LensSigner::directoryChecksum(folder);
    if (packed.checksum.empty())
        return fail("a file of the lens cannot be read");
    packed.signature = signer.sign(packed.checksum, packed.manifest.id);
    // Check the signature the way clients will before handing it out.
    if (packed.signature.empty() ||
        !LensSigner::verify(packed.checksum, packed.manifest.id, packed.signature, signer.publicKeyBase64()))
        return fail("signing failed");
    if (!ZipWriter::writeDirectory(folder, zipPath, &reason))
        return fail(reason);
    if (result)
        *result = std::move(packed);
    return true;
}

} // namespace glint::server
