#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace Sink {

// The few system calls the sink makes on a video device. Every call returns
// a negative errno on failure, so a stand-in device needs no global state.
class V4l2Api
{
public:
    virtual ~V4l2Api() = default;
    // Device nodes to consider, in the order they should be tried.
    virtual std::vector<std::string> deviceNodes() = 0;
    // Returns a descriptor or -errno.
    virtual int open(const std::string &path) = 0;
    virtual void close(int fd) = 0;
    // Returns 0 or -errno.
    virtual int ioctl(int fd, unsigned long request, void *arg) = 0;
    // Returns the bytes written or -errno.
    virtual ssize_t write(int fd, const void *data, size_t size) = 0;
};

} // namespace Sink
