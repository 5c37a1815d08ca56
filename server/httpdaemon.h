#pragma once

#include "httplimits.h"
#include "httprouter.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

struct MHD_Daemon;
struct MHD_Connection;

namespace glint::server {

class ConnectionWatchdog;
class HandlerPool;
struct Exchange;

// The HTTP side of the server, on GNU libmicrohttpd: a few event-loop
// threads (epoll) serve every connection, so idle or slow clients hold no
// thread. The library itself bounds connections (total and per address),
// the memory of each connection (request line and headers) and inactivity;
// this class adds header count and target length limits, per-route body
// limits decided from Content-Length before any body byte is read, a total
// for bodies held in memory, header and body deadlines, strict parsing of
// the target, and JSON errors. Routes marked blocking run on a small pool
// of their own while their connection is suspended.
class HttpDaemon
{
public:
    // Runs before the route and before any body is read; false means the
    // request is answered with res as it stands (for example 429).
    using Gate = std::function<bool(const httplib::Request &, httplib::Response &)>;

    HttpDaemon(HttpLimits limits, const HttpRouter &router, Gate gate);
    ~HttpDaemon();
    HttpDaemon(const HttpDaemon &) = delete;
    HttpDaemon &operator=(const HttpDaemon &) = delete;

    // Binds address:port (port 0: any free one); returns the port or -1.
    int listen(const std::string &address, int port, std::string *error);
    // Starts serving on the bound socket.
    bool start(std::string *error);
    void stop();

private:
    struct Callbacks; // the library's callbacks, in the source file
    friend struct Callbacks;

    // Each returns false when the connection must be dropped.
    bool begin(MHD_Connection *connection, Exchange &exchange);
    bool answer(MHD_Connection *connection, Exchange &exchange);
    void handle(Exchange &exchange);
    bool handOff(MHD_Connection *connection, Exchange &exchange);
    bool send(MHD_Connection *connection, Exchange &exchange);
    void collectRequest(MHD_Connection *connection, Exchange &exchange);
    bool reserveBody(Exchange &exchange, size_t bytes);

    HttpLimits m_limits;
    const HttpRouter &m_router;
    Gate m_gate;
    std::unique_ptr<ConnectionWatchdog> m_watchdog;
    std::unique_ptr<HandlerPool> m_pool;
    MHD_Daemon *m_daemon = nullptr;
    int m_socket = -1;
    std::atomic<size_t> m_bufferedBodies{0};
};

} // namespace glint::server
