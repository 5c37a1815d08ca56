#pragma once

#include "hotkeychord.h"

#include <functional>
#include <memory>
#include <string>

namespace VCam {

// The platform's system-wide hotkeys: X11 key grabs on the root window on
// Linux, RegisterHotKey on Windows. Every grab has an id of the caller's
// choosing; `activated` is called with it, on the thread that created the
// grabber, whenever the keys are pressed, whichever program has the focus.
class HotkeyGrabber
{
public:
    enum class Result { Grabbed, TakenByOtherProgram, UnknownKey, Unavailable };

    static std::unique_ptr<HotkeyGrabber> create(std::function<void(int id)> activated);
    virtual ~HotkeyGrabber() = default;

    // False where this session offers no system-wide hotkeys (a Wayland
    // session without X11); `unavailableReason` then says why.
    virtual bool isAvailable() const = 0;
    virtual std::string unavailableReason() const = 0;

    virtual Result grab(int id, const HotkeyChord &chord) = 0;
    virtual void release(int id) = 0;

    // A descriptor that becomes readable when events wait (X11), or -1 when
    // the platform delivers them through the thread's message loop (Windows).
    virtual int eventDescriptor() const = 0;
    // Reads waiting events and reports activations.
    virtual void processEvents() = 0;
};

} // namespace VCam
