#include "systemv4l2api.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Sink {

namespace {

int nodeNumber(const std::string &name)
{
    return std::atoi(name.c_str() + 5); // after "video"
}

} // namespace

std::vector<std::string> SystemV4l2Api::deviceNodes()
{
    std::vector<std::string> names;
    if (DIR *dir = ::opendir("/dev")) {
        while (dirent *entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name.compare(0, 5, "video") == 0)
                names.push_back(name);
        }
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end(),
              [](const std::string &a, const std::string &b) { return nodeNumber(a) < nodeNumber(b); });
    for (auto &name : names)
        name = "/dev/" + name;
    return names;
}

int SystemV4l2Api::open(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    return fd < 0 ? -errno : fd;
}

void SystemV4l2Api::close(int fd)
{
    ::close(fd);
}

int SystemV4l2Api::ioctl(int fd, unsigned long request, void *arg)
{
    int result;
    do {
        result = ::ioctl(fd, request, arg);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? -errno : 0;
}

ssize_t SystemV4l2Api::write(int fd, const void *data, size_t size)
{
    const ssize_t written = ::write(fd, data, size);
    return written < 0 ? -errno : written;
}

} // namespace Sink
