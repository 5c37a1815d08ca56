#include "ffmpegwebcamframestream.h"

extern "C" {
#include <libavutil/dict.h>
}

// Windows capture: the dshow input addressed by the camera's description.

namespace VCam {

const char *FFmpegWebcamFrameStream::inputFormatName()
{
    return "dshow";
}

void FFmpegWebcamFrameStream::setBaseOptions(AVDictionary **options)
{
    av_dict_set(options, "rtbufsize", "300K", 0);
}

void FFmpegWebcamFrameStream::setForcedCodecOption(AVDictionary **, int)
{
    // dshow takes the forced codec from the format context alone.
}

std::string FFmpegWebcamFrameStream::inputUrl() const
{
    return "video=" + m_deviceName;
}

} // namespace VCam
