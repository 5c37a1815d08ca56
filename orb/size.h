#pragma once

namespace Orb {

// Width and height of an image or texture in pixels.
struct Size
{
    int width = 0;
    int height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    bool operator==(const Size &other) const { return width == other.width && height == other.height; }
    bool operator!=(const Size &other) const { return !(*this == other); }
};

} // namespace Orb
