#include "ffmpegwebcamframestream.h"

#include "framesourcelogging.h"

#include <algorithm>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace VCam {

namespace {

int openWithFFmpeg(AVFormatContext **context, const std::string &url, const AVInputFormat *format,
                   AVDictionary **options)
{
    return avformat_open_input(context, url.c_str(), format, options);
}

} // namespace

FFmpegWebcamFrameStream::FFmpegWebcamFrameStream() : m_opener(openWithFFmpeg) {}

FFmpegWebcamFrameStream::~FFmpegWebcamFrameStream()
{
    m_deviceName.clear();
}

void FFmpegWebcamFrameStream::setDeviceName(std::string name)
{
    m_deviceName = std::move(name);
}

std::string FFmpegWebcamFrameStream::deviceName() const
{
    return m_deviceName;
}

void FFmpegWebcamFrameStream::setAspectRatio(float ratio)
{
    m_aspectRatio = ratio;
    if (hasDecoder())
        rebuildFilterGraph();
}

void FFmpegWebcamFrameStream::setInputOpener(InputOpener opener)
{
    m_opener = std::move(opener);
}

const std::vector<std::string> &FFmpegWebcamFrameStream::videoSizes()
{
    static const std::vector<std::string> sizes{"1280x720", "1280x1024", "1600x1200", "1920x1080", "640x480"};
    return sizes;
}

const std::vector<std::string> &FFmpegWebcamFrameStream::frameRates()
{
    static const std::vector<std::string> rates{"30", "29.97", "25"};
    return rates;
}

const std::vector<int> &FFmpegWebcamFrameStream::forcedCodecs()
{
    static const std::vector<int> codecs{AV_CODEC_ID_MJPEG, AV_CODEC_ID_RAWVIDEO};
    return codecs;
}

bool FFmpegWebcamFrameStream::openInput()
{
    const AVInputFormat *format = av_find_input_format(inputFormatName());
    AVDictionary *options = nullptr;
    setBaseOptions(&options);
    const std::string url = inputUrl();
    for (const std::string &size : videoSizes()) {
        av_dict_set(&options, "video_size", size.c_str(), 0);
        for (const std::string &rate : frameRates()) {
            av_dict_set(&options, "framerate", rate.c_str(), 0);
            for (int codec : forcedCodecs()) {
                if (tryOpen(url, format, &options, codec)) {
                    av_dict_free(&options);
                    return true;
                }
            }
        }
    }
    av_dict_free(&options);
    avformat_free_context(m_formatContext);
    m_formatContext = nullptr;
    qCCritical(lcFrameSource) << "Can't open webcam stream";
    return false;
}

bool FFmpegWebcamFrameStream::tryOpen(const std::string &url, const AVInputFormat *format,
                                      AVDictionary **options, int codecId)
{
    if (!m_formatContext)
        m_formatContext = avformat_alloc_context();
    m_formatContext->video_codec_id = AVCodecID(codecId);
    setForcedCodecOption(options, codecId);
    return m_opener(&m_formatContext, url, format, options) == 0;
}

std::string FFmpegWebcamFrameStream::cropPrefix(int width, int height) const
{
    // The height comes from the input height, not from its width: a wide
    // ratio on a narrow picture keeps the full width and a cut-down height.
    const int wantedWidth = int(m_aspectRatio * float(height));
    const int cropWidth = std::min(wantedWidth, width);
    const int cropHeight = wantedWidth > width ? int(float(height) / m_aspectRatio) : height;
    if (cropWidth == width && cropHeight == height)
        return {};
    return "crop=" + std::to_string(cropWidth) + ":" + std::to_string(cropHeight) + ",";
}

std::string FFmpegWebcamFrameStream::filterDescription(int width, int height)
{
    return cropPrefix(width, height) + BaseFFmpegFrameStream::filterDescription(width, height);
}

} // namespace VCam
