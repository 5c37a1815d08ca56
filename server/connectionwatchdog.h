#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace glint::server {

// Deadlines the HTTP library does not keep by itself. Its inactivity
// timeout resets on every byte, so a client sending a header a byte at a
// time would never be cut off. Here a connection must deliver its request
// line and headers within the header timeout of connecting (or, on a kept
// connection, within idle + header timeout of its last answer) and its body
// within the body timeout. A connection past its deadline is shut down; the
// library then closes it as it would any broken connection.
class ConnectionWatchdog
{
public:
    using Clock = std::chrono::steady_clock;

    ConnectionWatchdog(std::chrono::milliseconds header, std::chrono::milliseconds body,
                       std::chrono::milliseconds idle);
    ~ConnectionWatchdog();

    void opened(const void *connection, int fd);
    void requestStarted(const void *connection); // headers are in; the body is due
    void responding(const void *connection);     // the answer is being sent
    void requestDone(const void *connection);    // the next request is due
    void closed(const void *connection);         // called before the socket closes

    size_t shutDownCount() const;

private:
    void setDeadline(const void *connection, Clock::time_point deadline);
    void run();

    struct Entry
    {
        int fd;
        Clock::time_point deadline;
    };

    const std::chrono::milliseconds m_header;
    const std::chrono::milliseconds m_body;
    const std::chrono::milliseconds m_idle;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::unordered_map<const void *, Entry> m_connections;
    size_t m_shutDown = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace glint::server
