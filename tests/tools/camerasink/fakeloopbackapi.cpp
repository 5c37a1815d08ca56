#include "fakeloopbackapi.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/videodev2.h>

namespace {
constexpr std::size_t kFrameBytes = 1280 * 720 * 2;
}

FakeLoopbackApi::Device &FakeLoopbackApi::add(const std::string &path, const Device &device)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_devices[path] = device;
}

FakeLoopbackApi::Device FakeLoopbackApi::snapshot(const std::string &path)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_devices.at(path);
}

std::vector<std::string> FakeLoopbackApi::deviceNodes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> nodes;
    for (const auto &entry : m_devices)
        nodes.push_back(entry.first);
    return nodes;
}

int FakeLoopbackApi::open(const std::string &path)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_devices.find(path);
    if (found == m_devices.end())
        return -ENOENT;
    if (found->second.openBusy)
        return -EBUSY;
    m_open[m_nextFd] = path;
    return m_nextFd++;
}

void FakeLoopbackApi::close(int fd)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_open.erase(fd);
}

FakeLoopbackApi::Device *FakeLoopbackApi::deviceFor(int fd)
{
    const auto found = m_open.find(fd);
    return found == m_open.end() ? nullptr : &m_devices[found->second];
}

int FakeLoopbackApi::ioctl(int fd, unsigned long request, void *arg)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Device *device = deviceFor(fd);
    if (!device)
        return -EBADF;
    switch (request) {
    case VIDIOC_QUERYCAP:
        return queryCap(*device, arg);
    case VIDIOC_S_FMT:
        return setFormat(*device, arg);
    case VIDIOC_S_PARM:
        return device->loopback ? 0 : -ENOTTY;
    case VIDIOC_STREAMON:
        if (!device->streamOnAccepted || !device->formatSet)
            return -EINVAL;
        device->streaming = true;
        return 0;
    case VIDIOC_STREAMOFF:
        device->streaming = false;
        return 0;
    default:
        return -ENOTTY;
    }
}

int FakeLoopbackApi::queryCap(Device &device, void *arg)
{
    auto *cap = static_cast<v4l2_capability *>(arg);
    std::memset(cap, 0, sizeof *cap);
    std::strncpy(reinterpret_cast<char *>(cap->card), device.card.c_str(), sizeof cap->card - 1);
    std::strncpy(reinterpret_cast<char *>(cap->driver), device.driver.c_str(), sizeof cap->driver - 1);
    uint32_t caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    if (device.loopback) {
        const bool producing = device.otherProducer || device.streaming || device.framesWritten > 0;
        caps = V4L2_CAP_READWRITE | V4L2_CAP_STREAMING;
        if (!device.exclusiveCaps)
            caps |= V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_OUTPUT;
        else
            caps |= producing ? V4L2_CAP_VIDEO_CAPTURE : V4L2_CAP_VIDEO_OUTPUT;
    }
    cap->device_caps = caps;
    cap->capabilities = caps | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

int FakeLoopbackApi::setFormat(Device &device, void *arg)
{
    auto *format = static_cast<v4l2_format *>(arg);
    if (!device.loopback || format->type != V4L2_BUF_TYPE_VIDEO_OUTPUT)
        return -EINVAL;
    if (device.otherProducer)
        return -EBUSY;
    auto &pix = format->fmt.pix;
    if (device.forceSmallFormat) {
        pix.width = 640;
        pix.height = 480;
        pix.bytesperline = 1280;
    }
    pix.sizeimage = pix.bytesperline * pix.height;
    device.formatSet = true;
    device.pixelFormat = pix.pixelformat;
    return 0;
}

ssize_t FakeLoopbackApi::write(int fd, const void *data, size_t size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Device *device = deviceFor(fd);
    if (!device)
        return -EBADF;
    ++device->writeCalls;
    const std::size_t accepted = device->maxWriteChunk ? std::min(size, device->maxWriteChunk) : size;
    const auto *bytes = static_cast<const uint8_t *>(data);
    device->pending.insert(device->pending.end(), bytes, bytes + accepted);
    if (device->pending.size() >= kFrameBytes) {
        device->lastFrame.assign(device->pending.begin(), device->pending.begin() + kFrameBytes);
        device->pending.erase(device->pending.begin(), device->pending.begin() + kFrameBytes);
        ++device->framesWritten;
    }
    return ssize_t(accepted);
}
