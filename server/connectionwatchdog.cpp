#include "connectionwatchdog.h"

#include <sys/socket.h>

namespace glint::server {

namespace {
constexpr auto kNever = ConnectionWatchdog::Clock::time_point::max();
constexpr auto kSweep = std::chrono::milliseconds(200);
} // namespace

ConnectionWatchdog::ConnectionWatchdog(std::chrono::milliseconds header, std::chrono::milliseconds body,
                                       std::chrono::milliseconds idle)
    : m_header(header), m_body(body), m_idle(idle), m_thread([this] { run(); })
{}

ConnectionWatchdog::~ConnectionWatchdog()
{
    {
        std::lock_guard guard(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void ConnectionWatchdog::opened(const void *connection, int fd)
{
    std::lock_guard guard(m_mutex);
    m_connections[connection] = {fd, Clock::now() + m_header};
}

void ConnectionWatchdog::requestStarted(const void *connection)
{
    setDeadline(connection, Clock::now() + m_body);
}

void ConnectionWatchdog::responding(const void *connection)
{
    setDeadline(connection, kNever);
}

void ConnectionWatchdog::requestDone(const void *connection)
{
    setDeadline(connection, Clock::now() + m_idle + m_header);
}

void ConnectionWatchdog::closed(const void *connection)
{
    std::lock_guard guard(m_mutex);
    m_connections.erase(connection);
}

size_t ConnectionWatchdog::shutDownCount() const
{
    std::lock_guard guard(m_mutex);
    return m_shutDown;
}

void ConnectionWatchdog::setDeadline(const void *connection, Clock::time_point deadline)
{
    std::lock_guard guard(m_mutex);
    const auto it = m_connections.find(connection);
    if (it != m_connections.end())
        it->second.deadline = deadline;
}

void ConnectionWatchdog::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_wake.wait_for(lock, kSweep, [this] { return m_stopping; })) {
        const auto now = Clock::now();
        for (auto &[connection, entry] : m_connections) {
            if (entry.deadline > now)
                continue;
            // The socket stays open (the library closes it, after telling
            // closed() under this same lock), so the descriptor cannot have
            // been reused by then.
            ::shutdown(entry.fd, SHUT_RDWR);
            entry.deadline = kNever;
            ++m_shutDown;
        }
    }
}

} // namespace glint::server
