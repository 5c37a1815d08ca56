#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// Opens no videos: every stream it gives ends at once, so lenses with video
// parts run without them.
class VideoCodecFactory : public Orb::VideoCodecFactory
{
public:
    std::unique_ptr<Orb::VideoStream> openVideo(const std::string &path) override;
};

} // namespace VCam
