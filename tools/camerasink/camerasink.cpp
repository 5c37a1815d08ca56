#include "camerasink.h"

#include "fifoframereader.h"
#include "fileoutput.h"
#include "frameconverter.h"
#include "frameformat.h"
#include "loopbackoutput.h"

#include <chrono>
#include <iostream>

namespace Sink {

namespace {

using Clock = std::chrono::steady_clock;

int report(const std::string &message, int code)
{
    std::cerr << "glint-camera-sink: " << message << "\n";
    return code;
}

void fillBlack(std::vector<uint8_t> &yuyv)
{
    for (std::size_t i = 0; i < yuyv.size(); i += 2) {
        yuyv[i] = 16;
        yuyv[i + 1] = 128;
    }
}

} // namespace

CameraSink::CameraSink(const SinkOptions &options, V4l2Api &api)
    : m_options(options), m_api(api), m_yuyv(kYuyvFrameBytes)
{}

int CameraSink::run(const std::atomic<bool> &stop)
{
    std::string error;
    // The device comes first: without one there is nothing to announce.
    LoopbackOutput device(m_api);
    const bool toDevice = m_options.output.empty();
    if (toDevice && !device.open(m_options.device, error))
        return report(error, DeviceFailed);
    if (toDevice)
        std::cerr << "glint-camera-sink: publishing to " << device.devicePath() << "\n";

    FifoFrameReader reader(m_options.directory);
    if (!reader.open(error))
        return report(error, PipeFailed);
    return toDevice ? runToDevice(reader, device, stop) : runToFile(reader, stop);
}

int CameraSink::runToFile(FifoFrameReader &reader, const std::atomic<bool> &stop)
{
    FileOutput output;
    std::string error;
    if (!output.open(m_options.output, error))
        return report(error, OutputFailed);
    FrameConverter converter(kFrameWidth, kFrameHeight);
    const bool rgb = m_options.format == SinkOptions::Format::Rgb;
    while (!stop) {
        const auto result = reader.read(200, error);
        if (result == FifoFrameReader::Result::Error)
            return report(error, PipeFailed);
        if (result != FifoFrameReader::Result::Frame)
            continue;
        const auto &frame = reader.frame();
        if (!rgb)
            converter.rgbToYuyv(frame.data(), m_yuyv.data());
        const bool written = rgb ? output.write(frame.data(), frame.size(), stop, error)
                                 : output.write(m_yuyv.data(), m_yuyv.size(), stop, error);
        if (!written)
            return stop ? Ok : report(error, OutputFailed);
    }
    return Ok;
}

int CameraSink::runToDevice(FifoFrameReader &reader, LoopbackOutput &device, const std::atomic<bool> &stop)
{
    FrameConverter converter(kFrameWidth, kFrameHeight);
    fillBlack(m_yuyv);
    const auto period = std::chrono::microseconds(1000000 / m_options.fps);
    auto nextTick = Clock::now();
    std::string error;
    while (!stop) {
        const auto now = Clock::now();
        if (now >= nextTick) {
            if (!device.writeFrame(m_yuyv.data(), error))
                return report(error, DeviceFailed);
            nextTick += period;
            if (nextTick < now) // fell behind (suspend, debugger): do not burst
                nextTick = now + period;
            continue;
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(nextTick - now).count();
        const auto result = reader.read(int(wait) + 1, error);
        if (result == FifoFrameReader::Result::Error)
            return report(error, PipeFailed);
        if (result == FifoFrameReader::Result::Frame)
            converter.rgbToYuyv(reader.frame().data(), m_yuyv.data());
    }
    return Ok;
}

} // namespace Sink
