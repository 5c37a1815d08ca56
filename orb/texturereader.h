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

    // Throws std::runtime_error when the texture cannot be read. An image
    // the caller still holds is never written again.
    std::shared_ptr<ImageBase> readTextureToImage(const Texture &texture);

private:
    unsigned m_framebuffer = 0;
    // The last image handed out; filled again once the caller let it go,
    // which spares a large allocation per frame.
    std::shared_ptr<ImageBase> m_last;
};

} // namespace Orb
