#pragma once

#include <string>

namespace glint::server {

// Renders text as a QR code (error correction level M) into a greyscale PNG:
// black modules on white, `scale` pixels per module, a four-module margin.
class QrCodePng
{
public:
    static std::string render(const std::string &text, int scale = 8);
};

} // namespace glint::server
