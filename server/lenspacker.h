#pragma once

#include <orb/lensmanifest.h>

#include <string>

namespace glint::server {

class LensSigner;

// What packing a lens folder produced.
struct PackedLens
{
    Orb::LensManifest manifest;
    std::string checksum;
    std::string signature;
};

// Validates a lens folder, checksums and signs it and zips it.
class LensPacker
{
public:
    static bool pack(const std::string &folder, const LensSigner &signer, const std::string &zipPath,
                     PackedLens *result, std::string *error);
};

} // namespace glint::server
