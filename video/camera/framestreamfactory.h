#pragma once

#include "iframestream.h"

#include <memory>
#include <string>

namespace VCam {

// Makes the frame stream that serves a camera name: a file camera for
// "file:<path>", the demo camera for its display name, a webcam otherwise.
class FrameStreamFactory
{
public:
    static std::unique_ptr<IFrameStream> create(const std::string &deviceName);
};

} // namespace VCam
