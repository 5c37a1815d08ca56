#include "fifoframereader.h"

#include "frameformat.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Sink {

namespace {

std::string systemError(const std::string &what)
{
    return what + ": " + std::strerror(errno);
}

} // namespace

FifoFrameReader::FifoFrameReader(std::string directory)
    : m_directory(std::move(directory)), m_frame(kRgbFrameBytes)
{}

FifoFrameReader::~FifoFrameReader()
{
    ::unlink(readyPath().c_str());
    if (m_fd >= 0) {
        ::unlink(pipePath().c_str());
        ::close(m_fd);
    }
}

std::string FifoFrameReader::pipePath() const
{
    return m_directory + "/" + kPipeName;
}

std::string FifoFrameReader::readyPath() const
{
    return m_directory + "/" + kReadyName;
}

bool FifoFrameReader::open(std::string &error)
{
    if (::mkdir(m_directory.c_str(), 0700) < 0 && errno != EEXIST) {
        error = systemError("cannot create " + m_directory);
        return false;
    }
    // Only a folder of our own, closed to others, may hold the pipe.
    struct stat info;
    if (::lstat(m_directory.c_str(), &info) < 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid() ||
        (info.st_mode & 077) != 0) {
        error =
            m_directory + " is not a private folder of this user (a link, another owner or open to others)";
        return false;
    }
    // A fresh FIFO: a stale one could still hold bytes of an earlier writer.
    ::unlink(readyPath().c_str());
    ::unlink(pipePath().c_str());
    if (::mkfifo(pipePath().c_str(), 0600) < 0) {
        error = systemError("cannot create the pipe " + pipePath());
        return false;
    }
    return openReadEnd(error) && announce(error);
}

bool FifoFrameReader::openReadEnd(std::string &error)
{
    m_fd = ::open(pipePath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0) {
        error = systemError("cannot open " + pipePath());
        return false;
    }
    // A larger pipe lets the writer hand over a frame in fewer wake-ups; the
    // kernel caps it for unprivileged users, which is fine.
    ::fcntl(m_fd, F_SETPIPE_SZ, 1 << 20);
    return true;
}

bool FifoFrameReader::announce(std::string &error)
{
    const int fd = ::open(readyPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = systemError("cannot create " + readyPath());
        return false;
    }
    ::close(fd);
    return true;
}

FifoFrameReader::Result FifoFrameReader::read(int timeoutMs, std::string &error)
{
    pollfd pfd{m_fd, POLLIN, 0};
    const int ready = ::poll(&pfd, 1, timeoutMs);
    if (ready < 0 && errno != EINTR) {
        error = systemError("poll on the pipe failed");
        return Result::Error;
    }
    if (ready <= 0)
        return Result::Timeout;
    return drain(error);
}

FifoFrameReader::Result FifoFrameReader::drain(std::string &error)
{
    for (;;) {
        const ssize_t got = ::read(m_fd, m_frame.data() + m_filled, m_frame.size() - m_filled);
        if (got > 0) {
            m_filled += std::size_t(got);
            if (m_filled == m_frame.size()) {
                m_filled = 0;
                return Result::Frame;
            }
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno == EAGAIN)
            return Result::Timeout;
        if (got < 0) {
            error = systemError("reading the pipe failed");
            return Result::Error;
        }
        return writerLeft(error) ? Result::Timeout : Result::Error;
    }
}

bool FifoFrameReader::writerLeft(std::string &error)
{
    if (m_filled > 0)
        ++m_discarded;
    m_filled = 0;
    // Once its writer has gone a FIFO keeps reporting end of file, so the
    // read end is opened again and readiness announced for the next writer.
    ::close(m_fd);
    m_fd = -1;
    return openReadEnd(error) && announce(error);
}

} // namespace Sink
