#include "ffmpegfileframestream.h"

#include "cameralist.h"
#include "framesourcelogging.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cmath>

namespace VCam {

bool FFmpegFileFrameStream::openInput()
{
    const std::string path = inputPath();
    if (path.empty() || avformat_open_input(&m_formatContext, path.c_str(), nullptr, nullptr) != 0) {
        qCCritical(lcFrameSource) << "Can't open video file" << QString::fromStdString(path);
        return false;
    }
    m_loopOffset = 0.0;
    m_lastTimestamp = 0.0;
    m_rewound = false;
    return true;
}

std::string FFmpegFileFrameStream::inputPath() const
{
    return CameraList::filePathOf(deviceName());
}

int FFmpegFileFrameStream::rotationOf(const AVStream *stream) const
{
    if (av_dict_get(stream->metadata, "rotate", nullptr, 0))
        return FFmpegWebcamFrameStream::rotationOf(stream);
    const auto *matrix = reinterpret_cast<const int32_t *>(
        av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (!matrix)
        return 0;
    // The matrix turns counter-clockwise; the filter text wants clockwise degrees.
    const int degrees = int(std::lround(-av_display_rotation_get(matrix)));
    return (degrees % 360 + 360) % 360;
}

Frame FFmpegFileFrameStream::read()
{
    Frame frame = FFmpegWebcamFrameStream::read();
    if (frame.failed && m_looping && isOpen() && rewind())
        frame = FFmpegWebcamFrameStream::read();
    if (frame.failed)
        return frame;
    if (m_rewound) {
        // First picture of a new loop: continue one frame after the last one.
        m_loopOffset = m_lastTimestamp + 1.0 / fps() - frame.timestamp;
        m_rewound = false;
    }
    frame.timestamp += m_loopOffset;
    m_lastTimestamp = frame.timestamp;
    return frame;
}

bool FFmpegFileFrameStream::rewind()
{
    if (av_seek_frame(m_formatContext, -1, 0, AVSEEK_FLAG_BACKWARD) < 0) {
        qCWarning(lcFrameSource) << "Can't rewind video file" << QString::fromStdString(inputPath());
        return false;
    }
    avcodec_flush_buffers(m_codecContext);
    m_rewound = true;
    return true;
}

} // namespace VCam
