// System-wide hotkeys on Windows: RegisterHotKey on a message-only window of
// our own. The thread's message loop (Qt's on the main thread) dispatches
// WM_HOTKEY to that window's procedure, which reports the hotkey's id.
#include "hotkeygrabber.h"

#include <map>
#include <windows.h>

namespace VCam {

namespace {

const wchar_t kWindowClass[] = L"GlintCameraHotkeys";

UINT virtualKeyOf(const HotkeyChord &chord)
{
    using Named = HotkeyChord::Named;
    if (chord.named == Named::None) {
        const char32_t c = chord.character;
        if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
            return static_cast<UINT>(c);
        if (c == ' ')
            return VK_SPACE;
        if (c < 0x20 || c >= 0x7f)
            return 0;
        const SHORT scan = VkKeyScanW(static_cast<WCHAR>(c));
        return scan == -1 ? 0 : static_cast<UINT>(scan & 0xff);
    }
    if (chord.named >= Named::F1 && chord.named <= Named::F24)
        return VK_F1 + (static_cast<int>(chord.named) - static_cast<int>(Named::F1));
    static const std::map<Named, UINT> table{
        {Named::Escape, VK_ESCAPE}, {Named::Tab, VK_TAB},       {Named::Backspace, VK_BACK},
        {Named::Return, VK_RETURN}, {Named::Enter, VK_RETURN},  {Named::Insert, VK_INSERT},
        {Named::Delete, VK_DELETE}, {Named::Pause, VK_PAUSE},   {Named::Print, VK_SNAPSHOT},
        {Named::Home, VK_HOME},     {Named::End, VK_END},       {Named::Left, VK_LEFT},
        {Named::Up, VK_UP},         {Named::Right, VK_RIGHT},   {Named::Down, VK_DOWN},
        {Named::PageUp, VK_PRIOR},  {Named::PageDown, VK_NEXT}, {Named::Space, VK_SPACE},
        {Named::Menu, VK_APPS},
    };
    const auto found = table.find(chord.named);
    return found == table.end() ? 0 : found->second;
}

UINT modifiersOf(const HotkeyChord &chord)
{
    UINT mask = MOD_NOREPEAT;
    if (chord.modifiers & HotkeyChord::Shift)
        mask |= MOD_SHIFT;
    if (chord.modifiers & HotkeyChord::Control)
        mask |= MOD_CONTROL;
    if (chord.modifiers & HotkeyChord::Alt)
        mask |= MOD_ALT;
    if (chord.modifiers & HotkeyChord::Meta)
        mask |= MOD_WIN;
    return mask;
}

class WindowsHotkeyGrabber : public HotkeyGrabber
{
public:
    explicit WindowsHotkeyGrabber(std::function<void(int)> activated) : m_activated(std::move(activated))
    {
        WNDCLASSEXW windowClass = {};
        windowClass.cbSize = sizeof windowClass;
        windowClass.lpfnWndProc = &WindowsHotkeyGrabber::windowProcedure;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = kWindowClass;
        RegisterClassExW(&windowClass); // fails harmlessly when already registered
        m_window = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                   windowClass.hInstance, nullptr);
        if (m_window)
            SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }

    ~WindowsHotkeyGrabber() override
    {
        if (!m_window)
            return;
        for (const auto &entry : m_registered)
            UnregisterHotKey(m_window, entry.first);
        DestroyWindow(m_window);
    }

    bool isAvailable() const override { return m_window != nullptr; }
    std::string unavailableReason() const override
    {
        return m_window ? std::string() : "The hotkey window could not be created.";
    }

    Result grab(int id, const HotkeyChord &chord) override
    {
        if (!m_window)
            return Result::Unavailable;
        release(id);
        const UINT key = virtualKeyOf(chord);
        if (key == 0)
            return Result::UnknownKey;
        if (!RegisterHotKey(m_window, id, modifiersOf(chord), key))
            return GetLastError() == ERROR_HOTKEY_ALREADY_REGISTERED ? Result::TakenByOtherProgram
                                                                     : Result::UnknownKey;
        m_registered[id] = key;
        return Result::Grabbed;
    }

    void release(int id) override
    {
        if (m_registered.erase(id) > 0)
            UnregisterHotKey(m_window, id);
    }

    int eventDescriptor() const override { return -1; }
    void processEvents() override {}

private:
    static LRESULT CALLBACK windowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message == WM_HOTKEY) {
            auto *self = reinterpret_cast<WindowsHotkeyGrabber *>(GetWindowLongPtrW(window, GWLP_USERDATA));
            if (self && self->m_registered.count(static_cast<int>(wParam)))
                self->m_activated(static_cast<int>(wParam));
            return 0;
        }
        return DefWindowProcW(window, message, wParam, lParam);
    }

    std::function<void(int)> m_activated;
    HWND m_window = nullptr;
    std::map<int, UINT> m_registered;
};

} // namespace

std::unique_ptr<HotkeyGrabber> HotkeyGrabber::create(std::function<void(int id)> activated)
{
    return std::make_unique<WindowsHotkeyGrabber>(std::move(activated));
}

} // namespace VCam
