#include "virtualcamstreamwriter.h"

#include "virtualcamevent.h"

#include <algorithm>

namespace VCam {

VirtualCamStreamWriter::VirtualCamStreamWriter() : m_thread(&VirtualCamStreamWriter::run, this) {}

VirtualCamStreamWriter::~VirtualCamStreamWriter()
{
    if (!m_thread.joinable())
        return;
    m_running = false;
    wakeConnectionThread();
    // The thread may be waiting for the camera side; setting the readiness
    // signal ourselves wakes it.
    VirtualCamEvent event;
    const bool opened = event.open();
    if (opened)
        event.set();
    if (m_thread.get_id() == std::this_thread::get_id())
        m_thread.detach();
    else
        m_thread.join();
    if (opened) {
        event.reset();
        event.close();
    }
}

std::chrono::milliseconds VirtualCamStreamWriter::writeTimeout() const
{
    return std::chrono::milliseconds(m_writeTimeoutMs.load());
}

// The time a write may take is two of the caller's frame intervals, taken
// as a running mean of the time between calls, within fixed bounds. A
// reader that keeps up, even slowly, finishes each frame well within it.
void VirtualCamStreamWriter::noteWriteCall()
{
    const auto now = Clock::now();
    if (m_lastCall != Clock::time_point()) {
        const double interval =
            std::min<double>(std::chrono::duration<double, std::milli>(now - m_lastCall).count(),
                             double(kMaxWriteTimeout.count()));
        m_meanIntervalMs += (interval - m_meanIntervalMs) / 8.0;
        const auto timeout = std::chrono::milliseconds(int64_t(2.0 * m_meanIntervalMs));
        m_writeTimeoutMs = std::clamp(timeout, kMinWriteTimeout, kMaxWriteTimeout).count();
    }
    m_lastCall = now;
}

bool VirtualCamStreamWriter::write(VirtualCamBuffer buffer, int byteCount)
{
    noteWriteCall();
    if (!m_pipe.isValid() || !buffer || byteCount <= 0)
        return false;
    switch (m_pipe.write(buffer.get(), std::size_t(byteCount), writeTimeout())) {
    case VirtualCamPipe::WriteResult::Written:
        return true;
    case VirtualCamPipe::WriteResult::TimedOut:
        dropStoppedReader();
        return false;
    case VirtualCamPipe::WriteResult::Failed:
        break;
    }
    m_pipe.invalidate();
    wakeConnectionThread();
    return false;
}

// The reader stopped taking data, perhaps in the middle of this frame. Its
// readiness is withdrawn first and the connection closed second: the reader
// then finds the end of the stream, throws the unfinished frame away and
// announces itself again, and only then is the pipe opened anew, so no new
// frame ever follows a partial one.
void VirtualCamStreamWriter::dropStoppedReader()
{
    ++m_timeouts;
    VirtualCamEvent event;
    if (event.open()) {
        event.reset();
        event.close();
    }
    m_pipe.disconnect();
    wakeConnectionThread();
}

void VirtualCamStreamWriter::wakeConnectionThread()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
    }
    m_broken.notify_all();
}

bool VirtualCamStreamWriter::waitWhileConnected()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_broken.wait(lock, [this] { return !m_running || !m_pipe.isValid(); });
    return m_running;
}

void VirtualCamStreamWriter::run()
{
    while (m_running) {
        if (m_pipe.isValid() && !waitWhileConnected())
            return;
        VirtualCamEvent event;
        if (!event.open())
            return;
        event.wait();
        if (!m_running)
            return;
        event.close();
        if (m_pipe.isValid())
            continue;
        m_pipe.open();
    }
}

} // namespace VCam
