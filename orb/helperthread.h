#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace Orb {

// A second thread for work of the current frame that can be split in two: the
// caller hands one half over with start(), does the other half itself and
// then waits for the helper. Where no core is free the two halves simply take
// turns, at the cost of a thread switch.
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
    // Returns once the task given last has finished.
    void wait();

private:
    void loop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::function<void()> m_task;
    bool m_busy = false;
    bool m_quit = false;
    std::thread m_thread;
};

} // namespace Orb
