#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace VCam {

// The writing end of the pipe to the camera side. Only the connection
// thread opens it; only the writing thread invalidates it, so the handle is
// an atomic read without a lock.
class VirtualCamPipe
{
public:
    VirtualCamPipe() = default;
    ~VirtualCamPipe();
    VirtualCamPipe(const VirtualCamPipe &) = delete;
    VirtualCamPipe &operator=(const VirtualCamPipe &) = delete;

    // Opens the pipe if the camera side has created it; false otherwise.
    bool open();
    bool isValid() const { return m_handle.load() != kInvalid; }
    // Writes the whole block; false when the reader is gone.
    bool write(const uint8_t *data, std::size_t size);
    // Forgets a broken handle.
    void invalidate();

private:
    static constexpr std::intptr_t kInvalid = -1;
    std::atomic<std::intptr_t> m_handle{kInvalid};
};

} // namespace VCam
