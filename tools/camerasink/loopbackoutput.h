#pragma once

#include "v4l2api.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Sink {

// Publishes YUYV 1280x720 frames to a v4l2loopback device.
//
// Without a named device, only devices whose card label is "Glint Camera"
// are considered. With exclusive_caps=1 such a device offers the output
// capability only while nobody else produces on it, so a device showing
// capture only is busy.
class LoopbackOutput
{
public:
    explicit LoopbackOutput(V4l2Api &api);
    ~LoopbackOutput();
    LoopbackOutput(const LoopbackOutput &) = delete;
    LoopbackOutput &operator=(const LoopbackOutput &) = delete;

    // Selects a device (namedDevice empty: by label) and negotiates the format.
    bool open(const std::string &namedDevice, std::string &error);
    // Writes one whole YUYV frame.
    bool writeFrame(const uint8_t *yuyv, std::string &error);

    const std::string &devicePath() const { return m_path; }
    bool isStreaming() const { return m_streaming; }

private:
    enum class Probe { Usable, NotOurs, Busy, Failed };
    Probe probe(const std::string &path, bool named, int &fd, std::string &reason);
    bool negotiate(std::string &error);
    void startStreaming();

    V4l2Api &m_api;
    int m_fd = -1;
    std::string m_path;
    bool m_streaming = false;
};

} // namespace Sink
