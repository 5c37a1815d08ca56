#pragma once

#include "v4l2api.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// Stands in for video device nodes, with the behaviour of v4l2loopback
// 0.12.7 that the sink depends on: with exclusive_caps=1 a device offers
// output until a producer is active and capture only afterwards; a device
// whose format is held by another producer refuses a new one with EBUSY.
class FakeLoopbackApi : public Sink::V4l2Api
{
public:
    struct Device
    {
        std::string card = "Glint Camera";
        std::string driver = "v4l2 loopback";
        bool loopback = true; // false: an ordinary capture-only webcam
        bool exclusiveCaps = true;
        bool otherProducer = false; // someone else is already publishing
        bool openBusy = false;      // open() fails with EBUSY
        bool streamOnAccepted = true;
        bool forceSmallFormat = false; // answers S_FMT with 640x480
        std::size_t maxWriteChunk = 0; // 0: whole writes
        // Observed:
        bool formatSet = false;
        bool streaming = false;
        uint32_t pixelFormat = 0;
        std::vector<uint8_t> lastFrame; // the bytes of the last complete frame
        std::size_t framesWritten = 0;
        std::size_t writeCalls = 0;
        std::vector<uint8_t> pending;
    };

    Device &add(const std::string &path, const Device &device);
    Device snapshot(const std::string &path);

    std::vector<std::string> deviceNodes() override;
    int open(const std::string &path) override;
    void close(int fd) override;
    int ioctl(int fd, unsigned long request, void *arg) override;
    ssize_t write(int fd, const void *data, size_t size) override;

private:
    Device *deviceFor(int fd);
    int queryCap(Device &device, void *arg);
    int setFormat(Device &device, void *arg);

    std::mutex m_mutex;
    std::map<std::string, Device> m_devices;
    std::map<int, std::string> m_open;
    int m_nextFd = 100;
};
