#include "httpdaemon.h"

#include "apierror.h"
#include "connectionwatchdog.h"
#include "handlerpool.h"
#include "requestlog.h"
#include "requesttarget.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <microhttpd.h>
#include <netinet/in.h>
#include <unistd.h>

namespace glint::server {

// One request in flight: created when its request line arrives, freed when
// the library reports it complete.
struct Exchange
{
    HttpDaemon *daemon = nullptr;
    std::string target;
    bool targetTooLong = false;
    bool started = false;
    const HttpRouter::Route *route = nullptr;
    size_t expectedBody = 0;
    size_t reserved = 0;
    bool hasBody = false; // the client declared one
    bool decided = false; // res holds the answer, to be sent on the next call
    bool handled = false; // the route's handler has run
    httplib::Request req;
    httplib::Response res;
    FileBody file;
};

namespace {

// Handlers that may block: four at a time, 64 waiting, then 503.
constexpr unsigned kBlockingThreads = 4;
constexpr size_t kBlockingQueue = 64;

std::string addressText(const sockaddr *address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address && address->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text, sizeof text);
    else if (address && address->sa_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr, text, sizeof text);
    return text;
}

MHD_Result collectHeader(void *cls, MHD_ValueKind, const char *key, const char *value)
{
    auto *headers = static_cast<httplib::Headers *>(cls);
    headers->emplace(key ? key : "", value ? value : "");
    return MHD_YES;
}

// Declared body length: absent (no body), a number, or unusable.
enum class BodyLength { None, Known, Chunked, Bad };

BodyLength declaredLength(const httplib::Request &req, size_t &length)
{
    length = 0;
    if (req.has_header("Transfer-Encoding"))
        return BodyLength::Chunked;
    if (!req.has_header("Content-Length"))
        return BodyLength::None;
    const std::string text = req.get_header_value("Content-Length");
    if (text.empty() || text.size() > 15 || text.find_first_not_of("0123456789") != std::string::npos)
        return BodyLength::Bad;
    length = size_t(std::stoull(text));
    return length == 0 ? BodyLength::None : BodyLength::Known;
}

} // namespace

struct HttpDaemon::Callbacks
{
    static void *target(void *self, const char *uri, MHD_Connection *)
    {
        auto *daemon = static_cast<HttpDaemon *>(self);
        auto *exchange = new Exchange;
        exchange->daemon = daemon;
        const size_t length = uri ? strnlen(uri, daemon->m_limits.maxTargetBytes + 1) : 0;
        exchange->targetTooLong = length > daemon->m_limits.maxTargetBytes;
        if (!exchange->targetTooLong)
            exchange->target.assign(uri, length);
        return exchange;
    }

    static MHD_Result request(void *, MHD_Connection *connection, const char *, const char *method,
                              const char *, const char *upload, size_t *uploadSize, void **context)
    {
        auto *exchange = static_cast<Exchange *>(*context);
        if (!exchange)
            return MHD_NO;
        HttpDaemon &self = *exchange->daemon;
        if (!exchange->started) {
            exchange->started = true;
            exchange->req.method = method ? method : "";
            self.m_watchdog->requestStarted(connection);
            return self.begin(connection, *exchange) ? MHD_YES : MHD_NO;
        }
        if (*uploadSize > 0) {
            // The library stops at Content-Length; the check guards the
            // reservation all the same.
            if (exchange->req.body.size() + *uploadSize > exchange->reserved)
                return MHD_NO;
            exchange->req.body.append(upload, *uploadSize);
            *uploadSize = 0;
            return MHD_YES;
        }
        if (!exchange->route && !exchange->decided)
            return MHD_NO; // answered already
        return self.send(connection, *exchange) ? MHD_YES : MHD_NO;
    }

    static void completed(void *self, MHD_Connection *connection, void **context, MHD_RequestTerminationCode)
    {
        auto *daemon = static_cast<HttpDaemon *>(self);
        auto *exchange = static_cast<Exchange *>(*context);
        if (exchange) {
            daemon->m_bufferedBodies -= exchange->reserved;
            delete exchange;
            *context = nullptr;
        }
        daemon->m_watchdog->requestDone(connection);
    }

    static void connection(void *self, MHD_Connection *connection, void **,
                           MHD_ConnectionNotificationCode code)
    {
        auto *daemon = static_cast<HttpDaemon *>(self);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            if (info)
                daemon->m_watchdog->opened(connection, info->connect_fd);
        } else {
            daemon->m_watchdog->closed(connection);
        }
    }
};

HttpDaemon::HttpDaemon(HttpLimits limits, const HttpRouter &router, Gate gate)
    : m_limits(limits), m_router(router), m_gate(std::move(gate))
{}

HttpDaemon::~HttpDaemon()
{
    stop();
}

void HttpDaemon::collectRequest(MHD_Connection *connection, Exchange &exchange)
{
    auto &req = exchange.req;
    const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    req.remote_addr = addressText(info ? info->client_addr : nullptr);
    MHD_get_connection_values(connection, MHD_HEADER_KIND, collectHeader, &req.headers);
}

bool HttpDaemon::reserveBody(Exchange &exchange, size_t bytes)
{
    size_t held = m_bufferedBodies.load();
    do {
        if (held + bytes > m_limits.maxBufferedBodies)
            return false;
    } while (!m_bufferedBodies.compare_exchange_weak(held, held + bytes));
    exchange.reserved = bytes;
    exchange.req.body.reserve(bytes);
    return true;
}

// Everything that can be decided from the request line and headers, before
// any body byte is read. Answers at once, or leaves the route set and
// waits for the body.
bool HttpDaemon::begin(MHD_Connection *connection, Exchange &exchange)
{
    auto &req = exchange.req;
    auto &res = exchange.res;
    collectRequest(connection, exchange);
    size_t length = 0;
    const BodyLength declared = declaredLength(req, length);
    exchange.hasBody = declared != BodyLength::None;
    std::string problem;
    if (exchange.targetTooLong) {
        req.path = "(too long)";
        ApiError::send(res, 414, "target_too_long", "the request target is too long");
        return answer(connection, exchange);
    }
    if (req.headers.size() > m_limits.maxHeaders) {
        ApiError::send(res, 431, "too_many_headers", "the request has too many header lines");
        return answer(connection, exchange);
    }
    if (!RequestTarget::parse(exchange.target, req.path, req.params, &problem)) {
        req.path = "(malformed)";
        ApiError::send(res, 400, "bad_request", problem);
        return answer(connection, exchange);
    }
    if (!m_gate(req, res))
        return answer(connection, exchange);
    bool pathKnown = false;
    const auto *route = m_router.find(req, &pathKnown);
    if (!route) {
        ApiError::send(res, pathKnown ? 405 : 404, pathKnown ? "method_not_allowed" : "not_found",
                       pathKnown ? "this path does not take " + req.method : "no such path");
        return answer(connection, exchange);
    }
    switch (declared) {
    case BodyLength::None:
        break;
    case BodyLength::Bad:
        ApiError::send(res, 400, "bad_request", "Content-Length is not a number");
        return answer(connection, exchange);
    case BodyLength::Chunked:
        ApiError::send(res, route->maxBody ? 411 : 413, route->maxBody ? "length_required" : "body_too_large",
                       route->maxBody ? "request bodies must state their Content-Length"
                                      : "this request takes no body");
        return answer(connection, exchange);
    case BodyLength::Known:
        if (length > route->maxBody) {
            ApiError::send(res, 413, "body_too_large",
                           route->maxBody ? "the request body is larger than " +
                                                std::to_string(route->maxBody) + " bytes"
                                          : "this request takes no body");
            return answer(connection, exchange);
        }
        if (!reserveBody(exchange, length)) {
            res.set_header("Retry-After", "5");
            ApiError::send(res, 503, "busy", "the server is receiving too much at once, try again shortly");
            return answer(connection, exchange);
        }
        break;
    }
    exchange.route = route;
    return true; // the body, or the call that ends the request, follows
}

// An answer decided before the body: sent at once when a body was
// announced (it is then never read and the connection closes), otherwise
// on the library's next call, which keeps the connection open.
bool HttpDaemon::answer(MHD_Connection *connection, Exchange &exchange)
{
    if (exchange.hasBody)
        return send(connection, exchange);
    exchange.decided = true;
    return true;
}

void HttpDaemon::handle(Exchange &exchange)
{
    auto &req = exchange.req;
    auto &res = exchange.res;
    try {
        if (exchange.route->fileHandler)
            exchange.route->fileHandler(req, res, exchange.file);
        else
            exchange.route->handler(req, res);
    } catch (const std::exception &e) {
        std::cerr << "Request failed: " << req.method << " " << req.path << ". Reason: " << e.what()
                  << std::endl;
        if (exchange.file.fd >= 0)
            ::close(exchange.file.fd);
        exchange.file = {};
        res = {};
        ApiError::send(res, 500, "server_error", "the server could not answer this request");
    }
    exchange.handled = true;
}

// A handler that may block runs on the pool while its connection rests;
// the library calls again once it is resumed, and the answer goes out then.
bool HttpDaemon::handOff(MHD_Connection *connection, Exchange &exchange)
{
    m_watchdog->responding(connection);
    MHD_suspend_connection(connection);
    const bool queued = m_pool->submit([this, connection, &exchange] {
        handle(exchange);
        MHD_resume_connection(connection);
    });
    if (queued)
        return true;
    MHD_resume_connection(connection);
    exchange.route = nullptr;
    exchange.res.set_header("Retry-After", "5");
    ApiError::send(exchange.res, 503, "busy", "the server is busy, try again shortly");
    return send(connection, exchange);
}

bool HttpDaemon::send(MHD_Connection *connection, Exchange &exchange)
{
    auto &req = exchange.req;
    auto &res = exchange.res;
    if (exchange.route) {
        if (exchange.route->blocking && !exchange.handled)
            return handOff(connection, exchange);
        if (!exchange.handled)
            handle(exchange);
        exchange.route = nullptr;
    }
    if (res.status < 100 || res.status > 599)
        res.status = 200;
    ApiError::fillDefault(res);
    MHD_Response *response = nullptr;
    uint64_t bytes = res.body.size();
    if (exchange.file.fd >= 0) {
        response = MHD_create_response_from_fd_at_offset64(exchange.file.length, exchange.file.fd,
                                                           exchange.file.offset);
        bytes = exchange.file.length;
        if (!response)
            ::close(exchange.file.fd);
        exchange.file = {};
    } else {
        response = MHD_create_response_from_buffer(res.body.size(), res.body.data(), MHD_RESPMEM_MUST_COPY);
    }
    if (!response)
        return false;
    for (const auto &[key, value] : res.headers) {
        if (key != "Content-Length")
            MHD_add_response_header(response, key.c_str(), value.c_str());
    }
    m_watchdog->responding(connection);
    const MHD_Result queued = MHD_queue_response(connection, unsigned(res.status), response);
    MHD_destroy_response(response);
    RequestLog::write(req.remote_addr, req.method, req.path, res.status, bytes);
    return queued == MHD_YES;
}

int HttpDaemon::listen(const std::string &address, int port, std::string *error)
{
    sockaddr_storage storage{};
    socklen_t length = 0;
    auto *v4 = reinterpret_cast<sockaddr_in *>(&storage);
    auto *v6 = reinterpret_cast<sockaddr_in6 *>(&storage);
    if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(uint16_t(port));
        length = sizeof *v4;
    } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(uint16_t(port));
        length = sizeof *v6;
    } else {
        *error = "\"" + address + "\" is not an IPv4 or IPv6 address";
        return -1;
    }
    m_socket = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<sockaddr *>(&storage), length) != 0 ||
        ::listen(m_socket, 1024) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr *>(&storage), &length) != 0) {
        *error = "cannot listen on " + address + ":" + std::to_string(port) + ": " + std::strerror(errno);
        if (m_socket >= 0)
            ::close(m_socket);
        m_socket = -1;
        return -1;
    }
    return ntohs(storage.ss_family == AF_INET ? v4->sin_port : v6->sin6_port);
}

bool HttpDaemon::start(std::string *error)
{
    using namespace std::chrono;
    m_pool = std::make_unique<HandlerPool>(kBlockingThreads, kBlockingQueue);
    m_watchdog = std::make_unique<ConnectionWatchdog>(seconds(m_limits.headerTimeoutSeconds),
                                                      seconds(m_limits.bodyTimeoutSeconds),
                                                      seconds(m_limits.idleTimeoutSeconds));
    m_daemon = MHD_start_daemon(
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, &Callbacks::request,
        this, MHD_OPTION_LISTEN_SOCKET, m_socket, MHD_OPTION_THREAD_POOL_SIZE, m_limits.threads,
        MHD_OPTION_CONNECTION_LIMIT, m_limits.maxConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
        m_limits.maxConnectionsPerAddress, MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_limits.connectionMemory,
        MHD_OPTION_CONNECTION_TIMEOUT, m_limits.idleTimeoutSeconds, MHD_OPTION_URI_LOG_CALLBACK,
        &Callbacks::target, this, MHD_OPTION_NOTIFY_COMPLETED, &Callbacks::completed, this,
        MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::connection, this, MHD_OPTION_END);
    m_socket = -1; // the library owns (and closes) the listening socket from here on
    if (!m_daemon) {
        *error = "the HTTP daemon could not start";
        m_watchdog.reset();
        return false;
    }
    return true;
}

void HttpDaemon::stop()
{
    // Jobs still on the pool resume their connections, so the pool ends
    // before the library does.
    if (m_pool)
        m_pool->stop();
    if (m_daemon) {
        MHD_stop_daemon(m_daemon);
        m_daemon = nullptr;
    }
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
    m_watchdog.reset();
}

} // namespace glint::server
