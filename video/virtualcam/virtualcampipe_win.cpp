#include "virtualcampipe.h"

#include <windows.h>

namespace VCam {

namespace {

constexpr const wchar_t *kPipeName = L"\\\\.\\pipe\\GlintVirtualCamPipe";
constexpr SIZE_T kSecurityDescriptorBytes = 40;

HANDLE toHandle(std::intptr_t value)
{
    return reinterpret_cast<HANDLE>(value);
}

} // namespace

VirtualCamPipe::~VirtualCamPipe()
{
    const std::intptr_t handle = m_handle.exchange(kInvalid);
    if (handle != kInvalid)
        CloseHandle(toHandle(handle));
}

bool VirtualCamPipe::open()
{
    // A null DACL: the camera filter may run under another account.
    PSECURITY_DESCRIPTOR descriptor = LocalAlloc(LPTR, kSecurityDescriptorBytes);
    if (!descriptor)
        return false;
    InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof attributes;
    attributes.lpSecurityDescriptor = descriptor;
    attributes.bInheritHandle = FALSE;
    const HANDLE pipe = CreateFileW(kPipeName, GENERIC_WRITE, 0, &attributes, OPEN_EXISTING, 0, nullptr);
    LocalFree(descriptor);
    m_handle = reinterpret_cast<std::intptr_t>(pipe);
    return pipe != INVALID_HANDLE_VALUE;
}

bool VirtualCamPipe::write(const uint8_t *data, std::size_t size)
{
    const std::intptr_t handle = m_handle.load();
    if (handle == kInvalid)
        return false;
    DWORD written = 0;
    return WriteFile(toHandle(handle), data, DWORD(size), &written, nullptr) != FALSE;
}

void VirtualCamPipe::invalidate()
{
    // The broken handle is only forgotten, as the filter side expects.
    m_handle = kInvalid;
}

} // namespace VCam
