#pragma once

#include "iframestream.h"

#include <atomic>
#include <memory>

struct AVCodecContext;
struct AVFilterContext;
struct AVFilterGraph;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace VCam {

// Decodes the first video stream of an FFmpeg input and pushes every picture
// through a filter graph that ends in 1280x720 RGBA. Subclasses open the input.
class BaseFFmpegFrameStream : public IFrameStream
{
public:
    BaseFFmpegFrameStream();
    ~BaseFFmpegFrameStream() override;

    bool open() override;
    void close() override;
    Frame read() override;
    double fps() const override;
    void pause() override {}
    void resume() override {}

    bool isOpen() const { return m_formatContext != nullptr; }
    bool hasDecoder() const { return m_codecContext != nullptr; }
    int rotation() const { return m_rotation; }
    int lastPacketSize() const { return m_lastPacketSize; }

    // Rebuilds the filter graph of an open stream so that the next picture
    // already uses the current filter text. Does nothing while closed.
    bool rebuildFilterGraph();

    static constexpr int OutputWidth = 1280;
    static constexpr int OutputHeight = 720;

protected:
    std::string filterDescription(int width, int height) override;
    static std::string rotationPrefix(int rotation);
    // Degrees clockwise from the stream's "rotate" tag (any case); 0 without one.
    virtual int rotationOf(const AVStream *stream) const;

    AVFormatContext *m_formatContext = nullptr;
    AVCodecContext *m_codecContext = nullptr;
    AVFilterGraph *m_filterGraph = nullptr;
    AVFilterContext *m_bufferSource = nullptr;
    AVFilterContext *m_bufferSink = nullptr;
    AVFrame *m_decodedFrame = nullptr;
    AVFrame *m_filteredFrame = nullptr;
    AVPacket *m_packet = nullptr;
    int m_videoStreamIndex = -1;
    double m_fps = 1.0;
    int m_rotation = 0;
    int m_lastPacketSize = -1;
    // Shared with the clean-up of the images handed out, which may run on any
    // thread and after this stream is gone.
    std::shared_ptr<std::atomic_bool> m_frameInUse = std::make_shared<std::atomic_bool>(false);

private:
    bool openLocked();
    void closeLocked();
    bool openDecoder();
    bool buildFilterGraphLocked();
    bool decodeNextPicture();
    Frame filterPicture(double timestamp);
    QImage wrapFilteredFrame();
    void allocateReadBuffers();
};

} // namespace VCam
