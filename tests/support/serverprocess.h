#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// Runs glint-lens-server (GLINT_TEST_SERVER_BIN) as a child process on a
// free port (or the one given with --port) and stops it.
class ServerProcess
{
public:
    explicit ServerProcess(std::vector<std::string> args);
    ~ServerProcess();

    bool started() const { return m_port > 0; }
    int port() const { return m_port; }
    pid_t pid() const { return m_pid; }
    // Resident memory of the process now, and its peak, in KiB (/proc).
    long residentKiB() const { return statusField("VmRSS:"); }
    long peakResidentKiB() const { return statusField("VmHWM:"); }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
    // Stops with SIGTERM; returns the exit status.
    int stop();
    std::string output() const;

private:
    long statusField(const std::string &field) const;

    pid_t m_pid = -1;
    int m_port = 0;
    std::string m_logPath;
};
