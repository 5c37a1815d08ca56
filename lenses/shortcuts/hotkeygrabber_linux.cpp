// System-wide hotkeys on X11: passive key grabs on the root window through a
// connection of our own, so they work whatever toolkit platform the program
// runs on. Each chord is grabbed once for every combination of the lock
// modifiers (Caps Lock, Num Lock, Scroll Lock), because X compares the
// modifier state exactly and a lit Num Lock would otherwise hide the hotkey.
#include "hotkeygrabber.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

namespace VCam {

namespace {

constexpr uint8_t kBadAccess = 10;
constexpr xcb_keysym_t kNumLock = 0xff7f;
constexpr xcb_keysym_t kScrollLock = 0xff14;
constexpr uint16_t kChordMask = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

xcb_keysym_t keysymOf(const HotkeyChord &chord)
{
    using Named = HotkeyChord::Named;
    if (chord.named == Named::None) {
        const char32_t c = chord.character;
        if (c >= 'A' && c <= 'Z')
            return c - 'A' + 'a';
        return c >= 0x20 && c < 0x7f ? c : 0;
    }
    if (chord.named >= Named::F1 && chord.named <= Named::F24)
        return 0xffbe + (static_cast<int>(chord.named) - static_cast<int>(Named::F1));
    static const std::map<Named, xcb_keysym_t> table{
        {Named::Escape, 0xff1b}, {Named::Tab, 0xff09},      {Named::Backspace, 0xff08},
        {Named::Return, 0xff0d}, {Named::Enter, 0xff8d},    {Named::Insert, 0xff63},
        {Named::Delete, 0xffff}, {Named::Pause, 0xff13},    {Named::Print, 0xff61},
        {Named::Home, 0xff50},   {Named::End, 0xff57},      {Named::Left, 0xff51},
        {Named::Up, 0xff52},     {Named::Right, 0xff53},    {Named::Down, 0xff54},
        {Named::PageUp, 0xff55}, {Named::PageDown, 0xff56}, {Named::Space, 0x20},
        {Named::Menu, 0xff67},
    };
    const auto found = table.find(chord.named);
    return found == table.end() ? 0 : found->second;
}

uint16_t modifiersOf(const HotkeyChord &chord)
{
    uint16_t mask = 0;
    if (chord.modifiers & HotkeyChord::Shift)
        mask |= XCB_MOD_MASK_SHIFT;
    if (chord.modifiers & HotkeyChord::Control)
        mask |= XCB_MOD_MASK_CONTROL;
    if (chord.modifiers & HotkeyChord::Alt)
        mask |= XCB_MOD_MASK_1;
    if (chord.modifiers & HotkeyChord::Meta)
        mask |= XCB_MOD_MASK_4;
    return mask;
}

bool isWaylandSession()
{
    const char *type = std::getenv("XDG_SESSION_TYPE");
    return (type && std::strcmp(type, "wayland") == 0) || std::getenv("WAYLAND_DISPLAY");
}

class X11HotkeyGrabber : public HotkeyGrabber
{
public:
    explicit X11HotkeyGrabber(std::function<void(int)> activated) : m_activated(std::move(activated))
    {
        if (isWaylandSession()) {
            m_reason = "This is a Wayland session: it does not let programs take system-wide hotkeys.";
            return;
        }
        if (!std::getenv("DISPLAY")) {
            m_reason = "There is no X11 display to take system-wide hotkeys on.";
            return;
        }
        m_connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_connection)) {
            xcb_disconnect(m_connection);
            m_connection = nullptr;
            m_reason = "The X11 display could not be reached.";
            return;
        }
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        m_symbols = xcb_key_symbols_alloc(m_connection);
        readLockMasks();
    }

    ~X11HotkeyGrabber() override
    {
        if (!m_connection)
            return;
        for (const auto &entry : m_grabs)
            ungrab(entry.second);
        xcb_flush(m_connection);
        xcb_key_symbols_free(m_symbols);
        xcb_disconnect(m_connection);
    }

    bool isAvailable() const override { return m_connection != nullptr; }
    std::string unavailableReason() const override { return m_reason; }

    Result grab(int id, const HotkeyChord &chord) override
    {
        if (!m_connection)
            return Result::Unavailable;
        release(id);
        const xcb_keysym_t keysym = keysymOf(chord);
        Grab grab;
        grab.modifiers = modifiersOf(chord);
        if (keysym != 0) {
            xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_symbols, keysym);
            for (xcb_keycode_t *code = codes; code && *code != XCB_NO_SYMBOL; ++code)
                grab.keycodes.push_back(*code);
            free(codes);
        }
        if (grab.keycodes.empty())
            return Result::UnknownKey;

        bool refused = false;
        std::vector<xcb_void_cookie_t> cookies;
        for (xcb_keycode_t keycode : grab.keycodes)
            for (uint16_t locks : lockCombinations())
                cookies.push_back(xcb_grab_key_checked(m_connection, 1, m_root, grab.modifiers | locks,
                                                       keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        for (const auto &cookie : cookies) {
            if (xcb_generic_error_t *error = xcb_request_check(m_connection, cookie)) {
                refused = refused || error->error_code == kBadAccess;
                free(error);
            }
        }
        if (refused) {
            // Another client holds some variant: give back the ones we got.
            ungrab(grab);
            xcb_flush(m_connection);
            return Result::TakenByOtherProgram;
        }
        m_grabs[id] = grab;
        return Result::Grabbed;
    }

    void release(int id) override
    {
        const auto found = m_grabs.find(id);
        if (found == m_grabs.end())
            return;
        ungrab(found->second);
        m_grabs.erase(found);
        xcb_flush(m_connection);
    }

    // -1 once the display has gone away, so nobody waits on a dead socket.
    int eventDescriptor() const override
    {
        return m_connection && !xcb_connection_has_error(m_connection) ? xcb_get_file_descriptor(m_connection)
                                                                       : -1;
    }

    void processEvents() override
    {
        if (!m_connection)
            return;
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            const uint8_t kind = event->response_type & 0x7f;
            if (kind == XCB_KEY_PRESS)
                onKeyPress(reinterpret_cast<xcb_key_press_event_t *>(event));
            else if (kind == XCB_MAPPING_NOTIFY)
                xcb_refresh_keyboard_mapping(m_symbols,
                                             reinterpret_cast<xcb_mapping_notify_event_t *>(event));
            free(event);
        }
    }

private:
    struct Grab
    {
        uint16_t modifiers = 0;
        std::vector<xcb_keycode_t> keycodes;
    };

    void onKeyPress(const xcb_key_press_event_t *event)
    {
        const uint16_t state = event->state & kChordMask;
        for (const auto &[id, grab] : m_grabs) {
            if (grab.modifiers != state)
                continue;
            for (xcb_keycode_t keycode : grab.keycodes) {
                if (keycode == event->detail) {
                    m_activated(id);
                    return;
                }
            }
        }
    }

    void ungrab(const Grab &grab)
    {
        for (xcb_keycode_t keycode : grab.keycodes)
            for (uint16_t locks : lockCombinations())
                xcb_ungrab_key(m_connection, keycode, m_root, grab.modifiers | locks);
    }

    // Every subset of the lock modifiers this keyboard has.
    std::vector<uint16_t> lockCombinations() const
    {
        std::vector<uint16_t> locks{0};
        for (uint16_t mask : {uint16_t(XCB_MOD_MASK_LOCK), m_numLockMask, m_scrollLockMask}) {
            if (mask == 0 || (mask & kChordMask))
                continue;
            const size_t count = locks.size();
            for (size_t i = 0; i < count; ++i)
                locks.push_back(locks[i] | mask);
        }
        return locks;
    }

    // Num Lock and Scroll Lock sit on whichever modifier the keyboard map
    // puts them; find out which.
    void readLockMasks()
    {
        auto cookie = xcb_get_modifier_mapping(m_connection);
        xcb_get_modifier_mapping_reply_t *reply =
            xcb_get_modifier_mapping_reply(m_connection, cookie, nullptr);
        if (!reply)
            return;
        const xcb_keycode_t *map = xcb_get_modifier_mapping_keycodes(reply);
        const int perModifier = reply->keycodes_per_modifier;
        const auto maskOf = [&](xcb_keysym_t keysym) -> uint16_t {
            xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_symbols, keysym);
            uint16_t mask = 0;
            for (int modifier = 0; modifier < 8 && codes; ++modifier)
                for (int i = 0; i < perModifier; ++i)
                    for (xcb_keycode_t *code = codes; *code != XCB_NO_SYMBOL; ++code)
                        if (map[modifier * perModifier + i] == *code)
                            mask = uint16_t(1u << modifier);
            free(codes);
            return mask;
        };
        m_numLockMask = maskOf(kNumLock);
        m_scrollLockMask = maskOf(kScrollLock);
        free(reply);
    }

    std::function<void(int)> m_activated;
    std::string m_reason;
    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = 0;
    xcb_key_symbols_t *m_symbols = nullptr;
    uint16_t m_numLockMask = 0;
    uint16_t m_scrollLockMask = 0;
    std::map<int, Grab> m_grabs;
};

} // namespace

std::unique_ptr<HotkeyGrabber> HotkeyGrabber::create(std::function<void(int id)> activated)
{
    return std::make_unique<X11HotkeyGrabber>(std::move(activated));
}

} // namespace VCam
