#include "virtualcamevent.h"
#include "virtualcampaths.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace VCam {

// On Linux the readiness signal is a marker file beside the pipe: set means
// the file exists. Waiting watches the folder with inotify, and re-checks
// twice a second in case the folder itself was replaced.

namespace {

bool markerExists()
{
    return ::access(VirtualCamPaths::readyPath().c_str(), F_OK) == 0;
}

void drain(int fd)
{
    alignas(inotify_event) char buffer[4096];
    while (::read(fd, buffer, sizeof buffer) > 0) {
    }
}

} // namespace

VirtualCamEvent::~VirtualCamEvent()
{
    close();
}

bool VirtualCamEvent::open()
{
    close();
    if (!VirtualCamPaths::ensureDirectory())
        return false;
    const int fd = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd < 0)
        return false;
    if (::inotify_add_watch(fd, VirtualCamPaths::directory().c_str(),
                            IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_CLOSE_WRITE) < 0) {
        ::close(fd);
        return false;
    }
    m_handle = fd;
    m_open = true;
    return true;
}

void VirtualCamEvent::wait()
{
    if (!m_open)
        return;
    const int fd = int(m_handle);
    while (!markerExists()) {
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, 500) > 0)
            drain(fd);
    }
}

void VirtualCamEvent::set()
{
    const int fd = ::open(VirtualCamPaths::readyPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0)
        ::close(fd);
}

void VirtualCamEvent::reset()
{
    ::unlink(VirtualCamPaths::readyPath().c_str());
}

void VirtualCamEvent::close()
{
    if (m_open)
        ::close(int(m_handle));
    m_open = false;
    m_handle = 0;
}

} // namespace VCam
