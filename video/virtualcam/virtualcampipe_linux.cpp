#include "virtualcampaths.h"
#include "virtualcampipe.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace VCam {

namespace {

// A reader that vanishes makes write() raise SIGPIPE, which would end the
// program. The signal is blocked in the writing thread for the duration of
// a write, and one raised by that write is taken off the pending set before
// the old mask returns.
class SigpipeBlocker
{
public:
    SigpipeBlocker()
    {
        sigemptyset(&m_set);
        sigaddset(&m_set, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_set, &m_previous);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeBlocker() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

    void discardRaised()
    {
        if (m_wasPending)
            return;
        const timespec noWait{0, 0};
        while (sigtimedwait(&m_set, nullptr, &noWait) < 0 && errno == EINTR) {
        }
    }

private:
    sigset_t m_set;
    sigset_t m_previous;
    bool m_wasPending = false;
};

// Failed opens are retried by the connection thread as long as the ready
// marker exists; the pause keeps a stale marker from spinning a core.
void pauseAfterFailedOpen()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

} // namespace

VirtualCamPipe::~VirtualCamPipe()
{
    invalidate();
}

bool VirtualCamPipe::open()
{
    // Non-blocking, so that opening fails at once (ENXIO) when no sink reads.
    const int fd = ::open(VirtualCamPaths::pipePath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        pauseAfterFailedOpen();
        return false;
    }
    struct stat info;
    if (::fstat(fd, &info) < 0 || !S_ISFIFO(info.st_mode)) {
        ::close(fd);
        pauseAfterFailedOpen();
        return false;
    }
    // The descriptor stays non-blocking: a write waits in poll() for the
    // reader, as long as the caller's time limit allows.
    m_handle = fd;
    return true;
}

VirtualCamPipe::WriteResult VirtualCamPipe::write(const uint8_t *data, std::size_t size,
                                                  std::chrono::milliseconds timeout)
{
    using Clock = std::chrono::steady_clock;
    const int fd = int(m_handle.load());
    if (fd < 0)
        return WriteResult::Failed;
    SigpipeBlocker blocker;
    // A reader that takes data, however slowly, slows the writer down; one
    // that takes nothing for the whole timeout has stopped. The block as a
    // whole gets a longer, fixed bound.
    const auto start = Clock::now();
    const auto hardDeadline = start + std::max(timeout, kMaxBlockTime);
    auto idleDeadline = start + timeout;
    std::size_t done = 0;
    // The pipe holds less than a frame, so a write is taken in parts; each
    // part continues where the last ended and a frame is never sent twice.
    while (done < size) {
        const ssize_t written = ::write(fd, data + done, size - done);
        if (written > 0) {
            done += std::size_t(written);
            idleDeadline = Clock::now() + timeout;
            continue;
        }
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno == EAGAIN) {
            const auto deadline = std::min(idleDeadline, hardDeadline);
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0)
                return WriteResult::TimedOut;
            pollfd pfd{fd, POLLOUT, 0};
            if (::poll(&pfd, 1, int(left)) < 0 && errno != EINTR)
                return WriteResult::Failed;
            continue;
        }
        if (written < 0 && errno == EPIPE)
            blocker.discardRaised();
        return WriteResult::Failed;
    }
    return WriteResult::Written;
}

void VirtualCamPipe::disconnect()
{
    invalidate();
}

void VirtualCamPipe::invalidate()
{
    // Closing the broken end lets the kernel drop what a vanished reader left
    // unread, so a new reader never starts inside an old frame.
    const std::intptr_t fd = m_handle.exchange(kInvalid);
    if (fd != kInvalid)
        ::close(int(fd));
}

} // namespace VCam
