#pragma once

#include "ivirtualcamservice.h"
#include "virtualcampipe.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace VCam {

// Holds the pipe to the camera side and a connection thread that waits for
// the camera to be ready, opens the pipe, and waits again after the pipe
// breaks. Writes happen on the caller's thread, synchronously; with no
// connection a frame is dropped, never queued.
class VirtualCamStreamWriter
{
public:
    VirtualCamStreamWriter();
    ~VirtualCamStreamWriter();
    VirtualCamStreamWriter(const VirtualCamStreamWriter &) = delete;
    VirtualCamStreamWriter &operator=(const VirtualCamStreamWriter &) = delete;

    bool write(VirtualCamBuffer buffer, int byteCount);
    bool isConnected() const { return m_pipe.isValid(); }

private:
    void run();
    bool waitWhileConnected();
    void wakeConnectionThread();

    VirtualCamPipe m_pipe;
    std::atomic<bool> m_running{true};
    std::mutex m_mutex;
    std::condition_variable m_broken;
    std::thread m_thread;
};

} // namespace VCam
