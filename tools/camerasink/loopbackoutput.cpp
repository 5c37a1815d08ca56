#include "loopbackoutput.h"

#include "frameformat.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <linux/videodev2.h>

namespace Sink {

namespace {

std::string fixedString(const uint8_t *text, std::size_t size)
{
    const auto *chars = reinterpret_cast<const char *>(text);
    return std::string(chars, strnlen(chars, size));
}

uint32_t effectiveCaps(const v4l2_capability &cap)
{
    return (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
}

std::string errorText(int negativeErrno)
{
    return std::strerror(-negativeErrno);
}

} // namespace

LoopbackOutput::LoopbackOutput(V4l2Api &api) : m_api(api) {}

LoopbackOutput::~LoopbackOutput()
{
    if (m_fd < 0)
        return;
    if (m_streaming) {
        int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
        m_api.ioctl(m_fd, VIDIOC_STREAMOFF, &type);
    }
    m_api.close(m_fd);
}

LoopbackOutput::Probe LoopbackOutput::probe(const std::string &path, bool named, int &fd, std::string &reason)
{
    fd = m_api.open(path);
    if (fd == -EBUSY) {
        reason = path + " is busy: another program holds it";
        return Probe::Busy;
    }
    if (fd < 0) {
        reason = path + " cannot be opened: " + errorText(fd);
        return Probe::Failed;
    }
    v4l2_capability cap{};
    const int result = m_api.ioctl(fd, VIDIOC_QUERYCAP, &cap);
    Probe verdict = Probe::Usable;
    if (result < 0) {
        reason = path + " is not a video device: " + errorText(result);
        verdict = Probe::Failed;
    } else if (!named && (fixedString(cap.card, sizeof cap.card) != kCardLabel ||
                          fixedString(cap.driver, sizeof cap.driver) != kLoopbackDriver)) {
        verdict = Probe::NotOurs;
    } else if (!(effectiveCaps(cap) & V4L2_CAP_VIDEO_OUTPUT)) {
        reason = path + " is busy: another program is already publishing to it";
        verdict = Probe::Busy;
    }
    if (verdict != Probe::Usable) {
        m_api.close(fd);
        fd = -1;
    }
    return verdict;
}

bool LoopbackOutput::open(const std::string &namedDevice, std::string &error)
{
    const bool named = !namedDevice.empty();
    const auto candidates = named ? std::vector<std::string>{namedDevice} : m_api.deviceNodes();
    std::string busyReason;
    std::string failure;
    for (const auto &path : candidates) {
        int fd = -1;
        std::string reason;
        const Probe verdict = probe(path, named, fd, reason);
        if (verdict == Probe::Busy && busyReason.empty())
            busyReason = reason;
        if (verdict == Probe::Failed && failure.empty())
            failure = reason;
        if (verdict != Probe::Usable)
            continue;
        m_fd = fd;
        m_path = path;
        if (negotiate(error))
            return true;
        m_api.close(m_fd);
        m_fd = -1;
        return false;
    }
    if (!busyReason.empty())
        error = busyReason;
    else if (named)
        error = failure;
    else
        error = std::string("no v4l2loopback device labelled \"") + kCardLabel +
                "\" was found (load the module with card_label=\"" + kCardLabel + "\")";
    return false;
}

bool LoopbackOutput::negotiate(std::string &error)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    auto &pix = format.fmt.pix;
    pix.width = kFrameWidth;
    pix.height = kFrameHeight;
    pix.pixelformat = V4L2_PIX_FMT_YUYV;
    pix.field = V4L2_FIELD_NONE;
    pix.bytesperline = kFrameWidth * 2;
    pix.sizeimage = kYuyvFrameBytes;
    pix.colorspace = V4L2_COLORSPACE_SMPTE170M;
    const int result = m_api.ioctl(m_fd, VIDIOC_S_FMT, &format);
    if (result == -EBUSY) {
        error = m_path + " is busy: its format is fixed by another program";
        return false;
    }
    if (result < 0) {
        error = m_path + " refused the YUYV 1280x720 format: " + errorText(result);
        return false;
    }
    if (pix.pixelformat != V4L2_PIX_FMT_YUYV || pix.width != unsigned(kFrameWidth) ||
        pix.height != unsigned(kFrameHeight) || pix.bytesperline != unsigned(kFrameWidth * 2)) {
        error = m_path + " offered " + std::to_string(pix.width) + "x" + std::to_string(pix.height) +
                " with " + std::to_string(pix.bytesperline) + " bytes per line instead of YUYV 1280x720";
        return false;
    }

    v4l2_streamparm parm{};
    parm.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    parm.parm.output.timeperframe = {1, 30};
    m_api.ioctl(m_fd, VIDIOC_S_PARM, &parm); // a device without rate control still works
    startStreaming();
    return true;
}

void LoopbackOutput::startStreaming()
{
    // Older v4l2loopback versions take frames through write() without
    // stream-on and refuse it; that is not an error.
    int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    const int result = m_api.ioctl(m_fd, VIDIOC_STREAMON, &type);
    m_streaming = result == 0;
    if (!m_streaming)
        std::cerr << "glint-camera-sink: " << m_path << " did not accept stream-on (" << errorText(result)
                  << "), publishing by write()\n";
}

bool LoopbackOutput::writeFrame(const uint8_t *yuyv, std::string &error)
{
    // The device may take a frame in pieces; every piece continues where the
    // previous one ended.
    std::size_t done = 0;
    while (done < kYuyvFrameBytes) {
        const ssize_t written = m_api.write(m_fd, yuyv + done, kYuyvFrameBytes - done);
        if (written == -EINTR || written == -EAGAIN)
            continue;
        if (written <= 0) {
            error = m_path + (written == 0 ? std::string(" accepted no data")
                                           : " write failed: " + errorText(int(written)));
            return false;
        }
        done += std::size_t(written);
    }
    return true;
}

} // namespace Sink
