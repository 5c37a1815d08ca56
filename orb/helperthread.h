#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace Orb {

// A second thread for work of the current frame that can be shared: the
// caller hands a task over with start() and works on the same pool of work
// itself, then calls wait(). When no core is free the helper may not begin
// before the caller has finished everything; wait() then drops the task
// instead of waiting for the helper to be scheduled, so tasks must take
// their work from a pool the caller empties too.
class HelperThread
{
public:
    HelperThread();
    ~HelperThread();
    HelperThread(const HelperThread &) = delete;
    HelperThread &operator=(const HelperThread &) = delete;

    // Runs a task on the helper thread. Only one task at a time: call wait()
    // before the next start().
    void start(std::function<void()> task);
    // Returns once the task given last has finished, or at once, dropping
    // it, when the helper has not begun it.
    void wait();

private:
    void loop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::function<void()> m_task;
    bool m_busy = false;    // a task was given and is not done
    bool m_running = false; // the helper has begun it
    bool m_quit = false;
    std::thread m_thread;
};

} // namespace Orb
