#include "handlerpool.h"

namespace glint::server {

HandlerPool::HandlerPool(unsigned threads, size_t maxQueued) : m_maxQueued(maxQueued)
{
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { run(); });
}

HandlerPool::~HandlerPool()
{
    stop();
}

bool HandlerPool::submit(std::function<void()> job)
{
    {
        std::lock_guard guard(m_mutex);
        if (m_stopping || m_jobs.size() >= m_maxQueued)
            return false;
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
    return true;
}

void HandlerPool::stop()
{
    {
        std::lock_guard guard(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    for (auto &thread : m_threads)
        thread.join();
    m_threads.clear();
}

void HandlerPool::run()
{
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_jobs.empty())
                return; // stopping, and nothing left to do
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

} // namespace glint::server
