#pragma once

#include "ffmpegfileframestream.h"

#include <QString>

namespace VCam {

// The demo camera: a short looping clip of a portrait with gentle motion,
// shipped with the program so it can be used without a webcam.
class DemoFrameStream : public FFmpegFileFrameStream
{
public:
    DemoFrameStream();

    // GLINT_DEMO_CLIP when set, otherwise the first clip found beside the
    // executable or in a data folder next to or above it.
    static QString clipPath();
    static QString clipFileName();

protected:
    std::string inputPath() const override;
};

} // namespace VCam
