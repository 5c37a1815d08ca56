#include "virtualcamevent.h"

#include <windows.h>

namespace VCam {

namespace {

constexpr const wchar_t *kEventName = L"GlintVirtualCamEvent";

HANDLE toHandle(std::intptr_t value)
{
    return reinterpret_cast<HANDLE>(value);
}

} // namespace

VirtualCamEvent::~VirtualCamEvent()
{
    close();
}

bool VirtualCamEvent::open()
{
    close();
    // Manual reset, initially not signalled, default security.
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, kEventName);
    if (!event)
        return false;
    m_handle = reinterpret_cast<std::intptr_t>(event);
    m_open = true;
    return true;
}

void VirtualCamEvent::wait()
{
    if (m_open)
        WaitForSingleObject(toHandle(m_handle), INFINITE);
}

void VirtualCamEvent::set()
{
    if (m_open)
        SetEvent(toHandle(m_handle));
}

void VirtualCamEvent::reset()
{
    if (m_open)
        ResetEvent(toHandle(m_handle));
}

void VirtualCamEvent::close()
{
    if (m_open)
        CloseHandle(toHandle(m_handle));
    m_open = false;
    m_handle = 0;
}

} // namespace VCam
