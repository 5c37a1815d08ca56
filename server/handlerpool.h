#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace glint::server {

// A few threads for handlers that may block (a call to Twitch, a large
// write to disk), so that they never hold up an event loop. The queue is
// bounded: a job that does not fit is refused, and the caller answers 503.
class HandlerPool
{
public:
    HandlerPool(unsigned threads, size_t maxQueued);
    ~HandlerPool();
    HandlerPool(const HandlerPool &) = delete;
    HandlerPool &operator=(const HandlerPool &) = delete;

    bool submit(std::function<void()> job);
    // Runs every queued job, then ends the threads.
    void stop();

private:
    void run();

    const size_t m_maxQueued;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    std::vector<std::thread> m_threads;
    bool m_stopping = false;
};

} // namespace glint::server
