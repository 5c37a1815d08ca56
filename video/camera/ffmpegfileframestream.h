#pragma once

#include "ffmpegwebcamframestream.h"

namespace VCam {

// A video file used as a camera: any file FFmpeg reads, played in a loop.
// Its device name is "file:" followed by the path. Timestamps keep growing
// across loops.
class FFmpegFileFrameStream : public FFmpegWebcamFrameStream
{
public:
    Frame read() override;

    // On by default; without it a read at the end of the file fails.
    void setLooping(bool looping) { m_looping = looping; }

protected:
    bool openInput() override;
    virtual std::string inputPath() const;
    // Files from phones carry their rotation as a display matrix instead of
    // a tag; it counts when there is no tag.
    int rotationOf(const AVStream *stream) const override;

private:
    bool rewind();

    double m_loopOffset = 0.0;
    double m_lastTimestamp = 0.0;
    bool m_rewound = false;
    bool m_looping = true;
};

} // namespace VCam
