#include "videocodecfactory.h"

namespace VCam {

namespace {

class SilentVideoStream : public Orb::VideoStream
{
public:
    bool nextFrame(std::shared_ptr<Orb::ImageBase> &) override { return false; }
};

} // namespace

std::unique_ptr<Orb::VideoStream> VideoCodecFactory::openVideo(const std::string &)
{
    return std::make_unique<SilentVideoStream>();
}

} // namespace VCam
