#include "virtualcamstreamwriter.h"

#include "virtualcamevent.h"

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

bool VirtualCamStreamWriter::write(VirtualCamBuffer buffer, int byteCount)
{
    if (!m_pipe.isValid() || !buffer || byteCount <= 0)
        return false;
    if (m_pipe.write(buffer.get(), std::size_t(byteCount)))
        return true;
    m_pipe.invalidate();
    wakeConnectionThread();
    return false;
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
