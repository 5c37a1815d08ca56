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
    // Overlapped, so that a write can be given up when the filter stops reading.
    const HANDLE pipe =
        CreateFileW(kPipeName, GENERIC_WRITE, 0, &attributes, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    LocalFree(descriptor);
    m_handle = reinterpret_cast<std::intptr_t>(pipe);
    return pipe != INVALID_HANDLE_VALUE;
}

VirtualCamPipe::WriteResult VirtualCamPipe::write(const uint8_t *data, std::size_t size,
                                                  std::chrono::milliseconds timeout)
{
    const std::intptr_t handle = m_handle.load();
    if (handle == kInvalid)
        return WriteResult::Failed;
    OVERLAPPED overlapped{};
    overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!overlapped.hEvent)
        return WriteResult::Failed;
    DWORD written = 0;
    WriteResult result = WriteResult::Written;
    if (!WriteFile(toHandle(handle), data, DWORD(size), &written, &overlapped)) {
        if (GetLastError() != ERROR_IO_PENDING) {
            result = WriteResult::Failed;
        } else if (WaitForSingleObject(overlapped.hEvent, DWORD(timeout.count())) != WAIT_OBJECT_0) {
            // The filter stopped reading: give the write up and wait until
            // the cancelled request has let go of the buffer.
            CancelIoEx(toHandle(handle), &overlapped);
            GetOverlappedResult(toHandle(handle), &overlapped, &written, TRUE);
            result = WriteResult::TimedOut;
        } else if (!GetOverlappedResult(toHandle(handle), &overlapped, &written, FALSE) || written != size) {
            result = WriteResult::Failed;
        }
    }
    CloseHandle(overlapped.hEvent);
    return result;
}

void VirtualCamPipe::disconnect()
{
    const std::intptr_t handle = m_handle.exchange(kInvalid);
    if (handle != kInvalid)
        CloseHandle(toHandle(handle));
}

void VirtualCamPipe::invalidate()
{
    // The broken handle is only forgotten, as the filter side expects.
    m_handle = kInvalid;
}

} // namespace VCam
