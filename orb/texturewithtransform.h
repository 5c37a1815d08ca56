#pragma once

#include "recttransform.h"
#include "texture.h"

namespace Orb {

// A rendered frame and the crop/flip still to apply to it.
class TextureWithTransform
{
public:
    TextureWithTransform() = default;
    TextureWithTransform(Texture texture, RectTransform transform)
        : m_texture(std::move(texture)), m_transform(transform)
    {}

    const Texture &texture() const { return m_texture; }
    const RectTransform &transform() const { return m_transform; }

    // The frame with its transform applied (the texture itself when the
    // transform is the identity). Needs the GL context that rendered it.
    Texture buildNormalizedTexture() const;

private:
    Texture m_texture;
    RectTransform m_transform;
};

} // namespace Orb
