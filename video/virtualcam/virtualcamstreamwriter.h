#pragma once

#include "ivirtualcamservice.h"
#include "virtualcampipe.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace VCam {

// Holds the pipe to the camera side and a connection thread that waits for
// the camera to be ready, opens the pipe, and waits again after the pipe
// breaks. Writes happen on the caller's thread, synchronously; with no
// connection a frame is dropped, never queued. A slow reader slows the
// caller down, but a write that the reader does not take within about two
// of the caller's frame intervals is given up: the frame is dropped, the
// connection closed, and the writer waits for the reader to be ready again.
class VirtualCamStreamWriter
{
public:
    VirtualCamStreamWriter();
    ~VirtualCamStreamWriter();
    VirtualCamStreamWriter(const VirtualCamStreamWriter &) = delete;
    VirtualCamStreamWriter &operator=(const VirtualCamStreamWriter &) = delete;

    bool write(VirtualCamBuffer buffer, int byteCount);
    bool isConnected() const { return m_pipe.isValid(); }
    // How long the next write may wait for the reader.
    std::chrono::milliseconds writeTimeout() const;
    // Writes given up because the reader took nothing in time.
    uint64_t timeouts() const { return m_timeouts; }

    static constexpr std::chrono::milliseconds kMinWriteTimeout{50};
    static constexpr std::chrono::milliseconds kMaxWriteTimeout{500};

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void noteWriteCall();
    void dropStoppedReader();
    bool waitWhileConnected();
    void wakeConnectionThread();

    VirtualCamPipe m_pipe;
    std::atomic<bool> m_running{true};
    std::mutex m_mutex;
    std::condition_variable m_broken;
    Clock::time_point m_lastCall;
    double m_meanIntervalMs = 1000.0 / 30.0;
    std::atomic<int64_t> m_writeTimeoutMs{67};
    std::atomic<uint64_t> m_timeouts{0};
    std::thread m_thread;
};

} // namespace VCam
