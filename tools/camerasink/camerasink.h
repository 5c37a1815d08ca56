#pragma once

#include "sinkoptions.h"
#include "v4l2api.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace Sink {

class FifoFrameReader;
class FileOutput;
class FrameConverter;
class LoopbackOutput;

// The sink's main loop. To a device it publishes at a steady rate, repeating
// the last frame while the application sends none; to a file it writes each
// frame as it arrives.
class CameraSink
{
public:
    enum ExitCode { Ok = 0, BadUsage = 1, PipeFailed = 2, DeviceFailed = 3, OutputFailed = 4 };

    CameraSink(const SinkOptions &options, V4l2Api &api);

    // Runs until stop becomes true; returns an ExitCode.
    int run(const std::atomic<bool> &stop);

private:
    int runToFile(FifoFrameReader &reader, const std::atomic<bool> &stop);
    int runToDevice(FifoFrameReader &reader, LoopbackOutput &device, const std::atomic<bool> &stop);

    SinkOptions m_options;
    V4l2Api &m_api;
    std::vector<uint8_t> m_yuyv;
};

} // namespace Sink
