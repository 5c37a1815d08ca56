#pragma once

#include "hotkeychord.h"

#include <QKeySequence>

namespace VCam::KeySequences {

// The form every sequence is bound and compared in. A key typed with Shift
// on the digit row is turned back into that row's key as a US keyboard has
// it (Ctrl+Shift+! becomes Ctrl+Shift+1, Ctrl++ becomes Ctrl+=), so that
// the sequence names the physical key the hotkey grabs.
QKeySequence normalized(const QKeySequence &sequence);

// The platform grabbers' form of a one-key sequence; an invalid chord for
// sequences of several keys or keys no grabber knows.
HotkeyChord toChord(const QKeySequence &sequence);

// The sequence of a key press as the window sees it, for the in-window
// fallback: keypad and modifier-only presses are left out.
QKeySequence fromKeyPress(int key, Qt::KeyboardModifiers modifiers);

} // namespace VCam::KeySequences
