#pragma once

namespace Orb {

// A normalized crop and flip applied to a picture: the visible rectangle in
// 0..1 coordinates (top-left origin) and whether it is mirrored. The default
// is the identity.
struct RectTransform
{
    float x = 0.0f;
    float y = 0.0f;
    float width = 1.0f;
    float height = 1.0f;
    bool flipHorizontally = false;
    bool flipVertically = false;

    bool isIdentity() const
    {
        return x == 0.0f && y == 0.0f && width == 1.0f && height == 1.0f && !flipHorizontally &&
               !flipVertically;
    }
};

} // namespace Orb
