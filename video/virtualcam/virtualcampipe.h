#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace VCam {

// The writing end of the pipe to the camera side. Only the connection
// thread opens it; only the writing thread invalidates it, so the handle is
// an atomic read without a lock.
class VirtualCamPipe
{
public:
    enum class WriteResult { Written, Failed, TimedOut };

    VirtualCamPipe() = default;
    ~VirtualCamPipe();
    VirtualCamPipe(const VirtualCamPipe &) = delete;
    VirtualCamPipe &operator=(const VirtualCamPipe &) = delete;

    // Opens the pipe if the camera side has created it; false otherwise.
    bool open();
    bool isValid() const { return m_handle.load() != kInvalid; }
    // Writes the whole block. Failed when the reader is gone; TimedOut when
    // the reader took nothing for timeout (or the block took longer than
    // kMaxBlockTime), possibly in the middle of the block.
    WriteResult write(const uint8_t *data, std::size_t size, std::chrono::milliseconds timeout);
    // Forgets a broken handle.
    void invalidate();
    // Closes the connection, so that the reader sees its end and throws away
    // an unfinished block.
    void disconnect();

    static constexpr std::chrono::milliseconds kMaxBlockTime{1000};

private:
    static constexpr std::intptr_t kInvalid = -1;
    std::atomic<std::intptr_t> m_handle{kInvalid};
};

} // namespace VCam
