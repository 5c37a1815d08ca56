#pragma once

#include <cstdint>

namespace VCam {

// One key with its modifiers, in words both platform grabbers understand.
// Free of Qt so the Windows grabber compiles without it.
struct HotkeyChord
{
    enum Modifier : unsigned { Shift = 1, Control = 2, Alt = 4, Meta = 8 };

    // Keys that are not characters. F1 to F24 are contiguous.
    enum class Named {
        None,
        Escape,
        Tab,
        Backspace,
        Return,
        Enter,
        Insert,
        Delete,
        Pause,
        Print,
        Home,
        End,
        Left,
        Up,
        Right,
        Down,
        PageUp,
        PageDown,
        Space,
        Menu,
        F1,
        F2,
        F3,
        F4,
        F5,
        F6,
        F7,
        F8,
        F9,
        F10,
        F11,
        F12,
        F13,
        F14,
        F15,
        F16,
        F17,
        F18,
        F19,
        F20,
        F21,
        F22,
        F23,
        F24,
    };

    unsigned modifiers = 0;
    // A printable ASCII character ('A'-'Z' upper case, digits, punctuation)
    // when named is None.
    char32_t character = 0;
    Named named = Named::None;

    bool isValid() const { return named != Named::None || character != 0; }
};

} // namespace VCam
