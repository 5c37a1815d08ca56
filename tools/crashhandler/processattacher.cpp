#include "processattacher.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <set>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>

namespace CrashHandler {

namespace {

using Clock = std::chrono::steady_clock;

// Waits for the thread's stop without blocking past the deadline (a thread
// in uninterruptible sleep may never stop). Returns the signal to hand back
// at detach through pending, false when the thread is gone or did not stop.
bool waitForStop(pid_t tid, Clock::time_point deadline, int &pending)
{
    for (;;) {
        int status = 0;
        const pid_t result = ::waitpid(tid, &status, __WALL | WNOHANG);
        if (result == tid) {
            if (!WIFSTOPPED(status))
                return false; // exited meanwhile
            const int stopSignal = WSTOPSIG(status);
            const bool interruptStop = (status >> 16) == PTRACE_EVENT_STOP;
            if (!interruptStop && stopSignal != SIGSTOP && stopSignal != SIGTRAP)
                pending = stopSignal; // a signal on its way: deliver it later
            return true;
        }
        if (result < 0 && errno != EINTR)
            return false;
        if (Clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

} // namespace

ProcessAttacher::ProcessAttacher(pid_t pid) : m_pid(pid) {}

ProcessAttacher::~ProcessAttacher()
{
    detachAll();
}

std::vector<pid_t> ProcessAttacher::listThreads() const
{
    std::vector<pid_t> tids;
    const std::string path = "/proc/" + std::to_string(m_pid) + "/task";
    DIR *dir = ::opendir(path.c_str());
    if (!dir)
        return tids;
    while (dirent *entry = ::readdir(dir)) {
        char *end = nullptr;
        const long tid = std::strtol(entry->d_name, &end, 10);
        if (tid > 0 && end && *end == '\0')
            tids.push_back(pid_t(tid));
    }
    ::closedir(dir);
    std::sort(tids.begin(), tids.end());
    return tids;
}

bool ProcessAttacher::attachAll(int timeoutMs, std::string &error)
{
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::set<pid_t> known;
    for (int round = 0; round < 8; ++round) {
        std::vector<pid_t> fresh;
        for (pid_t tid : listThreads()) {
            if (known.insert(tid).second)
                fresh.push_back(tid);
        }
        if (fresh.empty())
            break;
        // Seize and interrupt them all first, then collect the stops, so
        // that the threads stop at nearly the same moment.
        std::vector<pid_t> seized;
        for (pid_t tid : fresh) {
            if (::ptrace(PTRACE_SEIZE, tid, nullptr, nullptr) != 0) {
                if (errno != ESRCH && error.empty())
                    error = "ptrace(PTRACE_SEIZE, " + std::to_string(tid) + "): " + std::strerror(errno);
                continue;
            }
            ::ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr);
            seized.push_back(tid);
        }
        for (pid_t tid : seized) {
            int pending = 0;
            if (waitForStop(tid, deadline, pending)) {
                m_stopped.push_back(tid);
                if (pending)
                    m_pendingSignals[tid] = pending;
            } else {
                ::ptrace(PTRACE_DETACH, tid, nullptr, nullptr);
            }
        }
    }
    std::sort(m_stopped.begin(), m_stopped.end());
    if (m_stopped.empty() && error.empty())
        error = "no thread of process " + std::to_string(m_pid) + " could be stopped";
    return !m_stopped.empty();
}

void ProcessAttacher::detachAll()
{
    for (pid_t tid : m_stopped) {
        const auto pending = m_pendingSignals.find(tid);
        const long signal = pending == m_pendingSignals.end() ? 0 : pending->second;
        ::ptrace(PTRACE_DETACH, tid, nullptr, reinterpret_cast<void *>(signal));
    }
    m_stopped.clear();
    m_pendingSignals.clear();
}

} // namespace CrashHandler
