#include "helperthread.h"

namespace Orb {

HelperThread::HelperThread() : m_thread([this] { loop(); }) {}

HelperThread::~HelperThread()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void HelperThread::start(std::function<void()> task)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_task = std::move(task);
        m_busy = true;
    }
    m_wake.notify_one();
}

void HelperThread::wait()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_busy && !m_running) {
        m_task = nullptr;
        m_busy = false;
        return;
    }
    m_done.wait(lock, [this] { return !m_busy; });
}

void HelperThread::loop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [this] { return (m_busy && !m_running) || m_quit; });
        if (m_quit)
            return;
        std::function<void()> task = std::move(m_task);
        m_running = true;
        lock.unlock();
        task();
        lock.lock();
        m_running = false;
        m_busy = false;
        m_done.notify_all();
    }
}

} // namespace Orb
