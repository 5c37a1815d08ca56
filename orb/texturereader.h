#pragma once

#include "imagebase.h"

#include <memory>

namespace Orb {

class Texture;

// Reads a texture back into memory as RGBA pixels, top row first.
class TextureReader
{
public:
    TextureReader();
    ~TextureReader();

    TextureReader(const TextureReader &) = delete;
    TextureReader &operator=(const TextureReader &) = delete;

    // Throws std::runtime_error when the texture cannot be read.
    std::shared_ptr<ImageBase> readTextureToImage(const Texture &texture);

private:
    unsigned m_framebuffer = 0;
};

} // namespace Orb
