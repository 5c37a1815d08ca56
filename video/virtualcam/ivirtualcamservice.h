#pragma once

#include "virtualcamconfig.h"

#include <cstdint>
#include <memory>

namespace VCam {

// A frame's pixels, shared with the writer for the duration of one write.
using VirtualCamBuffer = std::shared_ptr<const uint8_t>;

// The system's virtual camera: other programs see the frames written here
// as an ordinary webcam.
class IVirtualCamService
{
public:
    virtual ~IVirtualCamService() = default;
    // Registers the camera with the system (may ask the user for elevation).
    virtual bool install() = 0;
    virtual bool uninstall() = 0;
    virtual bool isInstalled() = 0;
    // Starts the output; frames written before the camera side is ready are dropped.
    virtual bool start() = 0;
    virtual bool stop() = 0;
    virtual bool isAvailable() = 0;
    virtual bool setConfig(const VirtualCamConfig &config) = 0;
    virtual bool getConfig(VirtualCamConfig &config) = 0;
    // Writes one 1280x720 RGB888 frame (byteCount = 2,764,800) synchronously.
    virtual bool writeFrame(VirtualCamBuffer buffer, int byteCount) = 0;
};

} // namespace VCam
