#include "rawclient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

RawClient::RawClient(int port, const std::string &from)
{
    m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, from.c_str(), &local.sin_addr);
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(uint16_t(port));
    remote.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0 ||
        ::connect(m_fd, reinterpret_cast<sockaddr *>(&remote), sizeof remote) != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RawClient::~RawClient()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool RawClient::send(const std::string &bytes)
{
    size_t sent = 0;
    while (m_fd >= 0 && sent < bytes.size()) {
        const ssize_t n = ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += size_t(n);
    }
    return m_fd >= 0;
}

int RawClient::readAnswer(std::chrono::milliseconds timeout, std::string *body)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    size_t headerEnd = std::string::npos;
    size_t length = 0;
    for (;;) {
        if (headerEnd == std::string::npos && (headerEnd = m_buffer.find("\r\n\r\n")) != std::string::npos) {
            const std::string head = m_buffer.substr(0, headerEnd);
            for (const char *name : {"Content-Length: ", "content-length: "}) {
                const size_t at = head.find(name);
                if (at != std::string::npos)
                    length = std::stoul(head.substr(at + 16));
            }
        }
        if (headerEnd != std::string::npos && m_buffer.size() >= headerEnd + 4 + length) {
            const int status = m_buffer.size() > 12 ? std::atoi(m_buffer.c_str() + 9) : 0;
            if (body)
                *body = m_buffer.substr(headerEnd + 4, length);
            m_buffer.erase(0, headerEnd + 4 + length);
            return status;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd p{m_fd, POLLIN, 0};
        if (m_fd < 0 || left.count() <= 0 || ::poll(&p, 1, int(left.count())) <= 0)
            return 0;
        char chunk[65536];
        const ssize_t n = ::recv(m_fd, chunk, sizeof chunk, 0);
        if (n <= 0)
            return 0;
        m_buffer.append(chunk, size_t(n));
    }
}

bool RawClient::closedWithin(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (m_fd >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd p{m_fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&p, 1, int(left.count())) <= 0)
            return false;
        char chunk[4096];
        const ssize_t n = ::recv(m_fd, chunk, sizeof chunk, 0);
        if (n <= 0)
            return true;
    }
    return true;
}
