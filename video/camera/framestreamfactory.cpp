#include "framestreamfactory.h"

#include "cameralist.h"
#include "demoframestream.h"
#include "ffmpegfileframestream.h"
#include "ffmpegwebcamframestream.h"

namespace VCam {

std::unique_ptr<IFrameStream> FrameStreamFactory::create(const std::string &deviceName)
{
    std::unique_ptr<IFrameStream> stream;
    switch (CameraList::kindOf(deviceName)) {
    case CameraList::Kind::File:
        stream = std::make_unique<FFmpegFileFrameStream>();
        break;
    case CameraList::Kind::Demo:
        stream = std::make_unique<DemoFrameStream>();
        break;
    case CameraList::Kind::Webcam:
        stream = std::make_unique<FFmpegWebcamFrameStream>();
        break;
    }
    stream->setDeviceName(deviceName);
    return stream;
}

} // namespace VCam
