#include "fileoutput.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Sink {

FileOutput::~FileOutput()
{
    if (m_owned && m_fd >= 0)
        ::close(m_fd);
}

bool FileOutput::open(const std::string &path, std::string &error)
{
    if (path == "-") {
        m_fd = STDOUT_FILENO;
        return true;
    }
    m_fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    m_owned = true;
    return true;
}

bool FileOutput::write(const uint8_t *data, std::size_t size, const std::atomic<bool> &stop,
                       std::string &error)
{
    std::size_t done = 0;
    while (done < size) {
        if (stop)
            return false;
        const ssize_t written = ::write(m_fd, data + done, size - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            error = std::string("writing the output failed: ") + std::strerror(errno);
            return false;
        }
        done += std::size_t(written);
    }
    return true;
}

} // namespace Sink
