#pragma once

#include <memory>
#include <string>

namespace Orb {

class ImageBase;

// A decoded video a lens plays, frame by frame.
class VideoStream
{
public:
    virtual ~VideoStream() = default;
    // False when there is no (further) frame.
    virtual bool nextFrame(std::shared_ptr<ImageBase> &frame) = 0;
};

// Opens videos for lenses; a host without decoding returns streams without
// frames.
class VideoCodecFactory
{
public:
    virtual ~VideoCodecFactory() = default;
    virtual std::unique_ptr<VideoStream> openVideo(const std::string &path) = 0;
};

} // namespace Orb
