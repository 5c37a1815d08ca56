#pragma once

namespace glint::server {

class Catalogue;
class LensSigner;

// Keeps every stored signature made by the key in use. The catalogue notes
// which public key signed its lenses; when the server or an import runs with
// another key (a new build's development key, a rotated release key), all
// lenses are signed again from their stored checksums. Archives are unchanged.
class LensResigner
{
public:
    // Returns how many lenses were signed again.
    static int ensureSignedWith(Catalogue &catalogue, const LensSigner &signer);
};

} // namespace glint::server
