#pragma once

namespace Orb {

// Touch and gesture input in normalized frame coordinates: (0, 0) is the
// top-left corner of the picture, (1, 1) the bottom-right one.
struct TouchEvent
{
    enum class Type { None = 0, Tap = 1, TouchBegin = 2, TouchChange = 3, TouchEnd = 4 };

    Type type = Type::None;
    float x = 0.0f;
    float y = 0.0f;
};

} // namespace Orb
