#pragma once

#include "texture.h"

namespace Orb {

// A texture with a framebuffer to draw into it.
class RenderTarget
{
public:
    RenderTarget() = default;
    ~RenderTarget();

    RenderTarget(const RenderTarget &) = delete;
    RenderTarget &operator=(const RenderTarget &) = delete;

    // (Re)allocates when the size differs. Returns false when the framebuffer
    // is incomplete.
    bool ensure(int width, int height);
    // Binds the framebuffer and sets the viewport to the whole texture.
    void bind() const;
    // Copies a texture of the target's size into it and leaves the target
    // bound. A blit lets the driver copy memory where a drawing pass would
    // run a shader for every pixel (a software renderer's main cost).
    void copyFrom(const Texture &source);
    const Texture &texture() const { return m_texture; }

private:
    Texture m_texture;
    unsigned m_framebuffer = 0;
    unsigned m_readFramebuffer = 0;
};

} // namespace Orb
