#pragma once

#include <chrono>
#include <string>

// A client on a plain socket, for requests no HTTP library would send:
// from a chosen loopback address, a byte at a time, never finished. Every
// read waits at most the given time.
class RawClient
{
public:
    // Connects from `from` (any 127.x.y.z) to 127.0.0.1:port.
    RawClient(int port, const std::string &from = "127.0.0.1");
    ~RawClient();
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    bool connected() const { return m_fd >= 0; }
    bool send(const std::string &bytes);
    // Reads one answer (status line, headers, Content-Length body); the
    // status code, or 0 when the connection closed or the time ran out.
    int readAnswer(std::chrono::milliseconds timeout, std::string *body = nullptr);
    // True when the server closes the connection within the time (any
    // answer it sends first is skipped).
    bool closedWithin(std::chrono::milliseconds timeout);

private:
    int m_fd = -1;
    std::string m_buffer;
};
