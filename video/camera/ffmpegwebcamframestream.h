#pragma once

#include "baseffmpegframestream.h"

#include <functional>
#include <string>
#include <vector>

struct AVDictionary;
struct AVInputFormat;

namespace VCam {

// A system camera opened through the platform's FFmpeg capture input. The
// output is cropped to the wanted aspect ratio before it is scaled.
class FFmpegWebcamFrameStream : public BaseFFmpegFrameStream
{
public:
    // Opens an input the way avformat_open_input does (0 on success; on
    // failure the context is freed and set to null). Tests replace it to play
    // a device that accepts only some settings.
    using InputOpener = std::function<int(AVFormatContext **context, const std::string &url,
                                          const AVInputFormat *format, AVDictionary **options)>;

    FFmpegWebcamFrameStream();
    ~FFmpegWebcamFrameStream() override;

    void setDeviceName(std::string name) override;
    std::string deviceName() const override;

    float aspectRatio() const { return m_aspectRatio; }
    // Stores the ratio (width / height) and rebuilds the graph of an open stream.
    void setAspectRatio(float ratio);

    void setInputOpener(InputOpener opener);

    // The order of open attempts: every size, then every rate, then every codec.
    static const std::vector<std::string> &videoSizes();
    static const std::vector<std::string> &frameRates();
    static const std::vector<int> &forcedCodecs();

protected:
    bool openInput() override;
    std::string filterDescription(int width, int height) override;
    std::string cropPrefix(int width, int height) const;

private:
    // Platform parts, defined in ffmpegwebcamframestream_<platform>.cpp.
    static const char *inputFormatName();
    static void setBaseOptions(AVDictionary **options);
    static void setForcedCodecOption(AVDictionary **options, int codecId);
    std::string inputUrl() const;

    bool tryOpen(const std::string &url, const AVInputFormat *format, AVDictionary **options, int codecId);

    std::string m_deviceName;
    float m_aspectRatio = 1.0f;
    InputOpener m_opener;
};

} // namespace VCam
