#include "ffmpegwebcamframestream.h"

#include <QCameraInfo>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/dict.h>
}

// Linux capture: the v4l2 input on the device node behind the camera's
// description. The forced codec also goes in as the driver's input format.

namespace VCam {

const char *FFmpegWebcamFrameStream::inputFormatName()
{
    return "v4l2";
}

void FFmpegWebcamFrameStream::setBaseOptions(AVDictionary **) {}

void FFmpegWebcamFrameStream::setForcedCodecOption(AVDictionary **options, int codecId)
{
    av_dict_set(options, "input_format", codecId == AV_CODEC_ID_MJPEG ? "mjpeg" : "rawvideo", 0);
}

std::string FFmpegWebcamFrameStream::inputUrl() const
{
    const QString name = QString::fromStdString(m_deviceName);
    if (name.startsWith(QLatin1String("/dev/")))
        return m_deviceName;
    const auto cameras = QCameraInfo::availableCameras();
    for (const QCameraInfo &camera : cameras) {
        if (camera.description() == name)
            return camera.deviceName().toStdString();
    }
    return m_deviceName;
}

} // namespace VCam
