#pragma once

#include "v4l2api.h"

namespace Sink {

// V4l2Api over the real /dev/video* nodes.
class SystemV4l2Api : public V4l2Api
{
public:
    std::vector<std::string> deviceNodes() override;
    int open(const std::string &path) override;
    void close(int fd) override;
    int ioctl(int fd, unsigned long request, void *arg) override;
    ssize_t write(int fd, const void *data, size_t size) override;
};

} // namespace Sink
