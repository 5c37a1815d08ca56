// Links the Windows hotkey grabber into a program for the cross-compile check.
#include "hotkeygrabber.h"

int main()
{
    int fired = 0;
    auto grabber = VCam::HotkeyGrabber::create([&fired](int) { ++fired; });
    VCam::HotkeyChord chord;
    chord.modifiers = VCam::HotkeyChord::Control | VCam::HotkeyChord::Shift;
    chord.character = U'1';
    const bool grabbed = grabber->grab(1, chord) == VCam::HotkeyGrabber::Result::Grabbed;
    grabber->release(1);
    return grabbed ? 0 : 1;
}
