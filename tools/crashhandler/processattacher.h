#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace CrashHandler {

// Stops every thread of a process under ptrace and lets them go again.
// Threads started while attaching are picked up in further rounds.
class ProcessAttacher
{
public:
    explicit ProcessAttacher(pid_t pid);
    ~ProcessAttacher();
    ProcessAttacher(const ProcessAttacher &) = delete;
    ProcessAttacher &operator=(const ProcessAttacher &) = delete;

    // False with a reason when no thread could be stopped in time.
    bool attachAll(int timeoutMs, std::string &error);
    void detachAll();
    // The stopped threads, in the order of /proc/<pid>/task.
    const std::vector<pid_t> &threads() const { return m_stopped; }

private:
    std::vector<pid_t> listThreads() const;

    pid_t m_pid;
    std::vector<pid_t> m_stopped;
    // A signal that arrived while stopping a thread, handed back at detach.
    std::map<pid_t, int> m_pendingSignals;
};

} // namespace CrashHandler
