#pragma once

#include <string>

namespace Orb {

// What happens to the picture behind the person in view. The effect is
// applied to the camera frame before any lens runs, so it shows under every
// lens and with none.
struct BackgroundEffect
{
    enum class Mode { Off, Blur, Image };
    enum class BlurStrength { Light, Strong };

    Mode mode = Mode::Off;
    BlurStrength blurStrength = BlurStrength::Light;
    // For Mode::Image: a PNG or JPEG file, scaled to cover the frame.
    std::string imagePath;

    bool operator==(const BackgroundEffect &other) const
    {
        return mode == other.mode && blurStrength == other.blurStrength && imagePath == other.imagePath;
    }
    bool operator!=(const BackgroundEffect &other) const { return !(*this == other); }
};

} // namespace Orb
