#include "baseffmpegframestream.h"

#include "ffmpegmutex.h"
#include "framesourcelogging.h"

#include <QMutexLocker>
#include <cstdlib>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

namespace VCam {

namespace {

void registerFFmpegOnce()
{
    // Codecs, formats and filters register themselves in current FFmpeg; only
    // the capture devices still need an explicit call. The library's own
    // chatter (warnings about each odd packet) stays out of the log.
    static std::once_flag once;
    std::call_once(once, [] {
        avdevice_register_all();
        av_log_set_level(AV_LOG_ERROR);
    });
}

// Keeps the filtered picture alive for as long as an image aliases it.
struct ImageHold
{
    AVFrame *frame = nullptr;
    std::shared_ptr<std::atomic_bool> inUse;
};

void releaseImage(void *info)
{
    auto *hold = static_cast<ImageHold *>(info);
    av_frame_free(&hold->frame);
    hold->inUse->store(false);
    delete hold;
}

} // namespace

BaseFFmpegFrameStream::BaseFFmpegFrameStream()
{
    registerFFmpegOnce();
}

BaseFFmpegFrameStream::~BaseFFmpegFrameStream()
{
    close();
    av_frame_free(&m_decodedFrame);
    av_frame_free(&m_filteredFrame);
}

bool BaseFFmpegFrameStream::open()
{
    QMutexLocker lock(&FFmpegMutex::instance());
    if (openLocked())
        return true;
    // Leave nothing half open: the next attempt starts from a closed stream.
    closeLocked();
    return false;
}

bool BaseFFmpegFrameStream::openLocked()
{
    if (!openInput())
        return false;
    if (avformat_find_stream_info(m_formatContext, nullptr) < 0) {
        qCCritical(lcFrameSource) << "Can't find stream information";
        return false;
    }
    m_videoStreamIndex = -1;
    for (unsigned i = 0; i < m_formatContext->nb_streams; ++i) {
        if (m_formatContext->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            m_videoStreamIndex = int(i);
            break;
        }
    }
    if (m_videoStreamIndex < 0) {
        qCCritical(lcFrameSource) << "Can't find a video stream";
        return false;
    }
    if (!openDecoder())
        return false;

    AVStream *stream = m_formatContext->streams[m_videoStreamIndex];
    m_rotation = rotationOf(stream);

    const AVRational rate = av_guess_frame_rate(m_formatContext, stream, nullptr);
    if (rate.num == 0) {
        qCCritical(lcFrameSource) << "Can't get frame rate";
        return false;
    }
    if (!buildFilterGraphLocked())
        return false;
    m_fps = double(rate.num) / rate.den;
    m_lastPacketSize = -1;
    return true;
}

int BaseFFmpegFrameStream::rotationOf(const AVStream *stream) const
{
    const AVDictionaryEntry *rotate = av_dict_get(stream->metadata, "rotate", nullptr, 0);
    return rotate && rotate->value[0] ? int(std::strtol(rotate->value, nullptr, 10)) : 0;
}

bool BaseFFmpegFrameStream::openDecoder()
{
    const AVCodecParameters *params = m_formatContext->streams[m_videoStreamIndex]->codecpar;
    const AVCodec *codec = avcodec_find_decoder(params->codec_id);
    if (!codec) {
        qCCritical(lcFrameSource) << "Unsupported codec with id" << params->codec_id;
        return false;
    }
    avcodec_free_context(&m_codecContext);
    m_codecContext = avcodec_alloc_context3(codec);
    if (avcodec_parameters_to_context(m_codecContext, params) < 0) {
        qCCritical(lcFrameSource) << "Can't copy codec context";
        return false;
    }
    if (avcodec_open2(m_codecContext, codec, nullptr) < 0) {
        qCCritical(lcFrameSource) << "Can't open codec";
        return false;
    }
    return true;
}

bool BaseFFmpegFrameStream::rebuildFilterGraph()
{
    QMutexLocker lock(&FFmpegMutex::instance());
    if (!m_codecContext)
        return false;
    return buildFilterGraphLocked();
}

bool BaseFFmpegFrameStream::buildFilterGraphLocked()
{
    const AVFilter *source = avfilter_get_by_name("buffer");
    const AVFilter *sink = avfilter_get_by_name("buffersink");
    avfilter_graph_free(&m_filterGraph);
    m_filterGraph = avfilter_graph_alloc();

    const int width = m_codecContext->width;
    const int height = m_codecContext->height;
    const std::string sourceArgs = "video_size=" + std::to_string(width) + "x" + std::to_string(height) +
                                   ":pix_fmt=" + std::to_string(int(m_codecContext->pix_fmt)) +
                                   ":time_base=1/1:pixel_aspect=1/1";
    if (avfilter_graph_create_filter(&m_bufferSource, source, "in", sourceArgs.c_str(), nullptr,
                                     m_filterGraph) < 0) {
        qCCritical(lcFrameSource) << "Can't create buffer source";
        return false;
    }
    if (avfilter_graph_create_filter(&m_bufferSink, sink, "out", nullptr, nullptr, m_filterGraph) < 0) {
        qCCritical(lcFrameSource) << "Can't create buffer sink";
        return false;
    }
    const AVPixelFormat outputFormats[] = {AV_PIX_FMT_RGBA, AV_PIX_FMT_NONE};
    if (av_opt_set_int_list(m_bufferSink, "pix_fmts", outputFormats, AV_PIX_FMT_NONE,
                            AV_OPT_SEARCH_CHILDREN) < 0) {
        qCCritical(lcFrameSource) << "Can't set output pixel format";
        return false;
    }

    AVFilterInOut *outputs = avfilter_inout_alloc();
    AVFilterInOut *inputs = avfilter_inout_alloc();
    outputs->name = av_strdup("in");
    outputs->filter_ctx = m_bufferSource;
    outputs->pad_idx = 0;
    outputs->next = nullptr;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = m_bufferSink;
    inputs->pad_idx = 0;
    inputs->next = nullptr;
    const std::string description = filterDescription(width, height);
    const int parsed =
        avfilter_graph_parse_ptr(m_filterGraph, description.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (parsed < 0) {
        qCCritical(lcFrameSource) << "Can't parse filter config";
        return false;
    }
    if (avfilter_graph_config(m_filterGraph, nullptr) < 0) {
        qCCritical(lcFrameSource) << "Can't configure filter";
        return false;
    }
    return true;
}

std::string BaseFFmpegFrameStream::rotationPrefix(int rotation)
{
    switch (rotation) {
    case 90:
        return "transpose=1,";
    case 180:
        return "transpose=1,transpose=1,";
    case 270:
        return "transpose=2,";
    default:
        return {};
    }
}

std::string BaseFFmpegFrameStream::filterDescription(int, int)
{
    return rotationPrefix(m_rotation) + "scale=" + std::to_string(OutputWidth) + ":" +
           std::to_string(OutputHeight);
}

void BaseFFmpegFrameStream::allocateReadBuffers()
{
    if (!m_decodedFrame)
        m_decodedFrame = av_frame_alloc();
    if (!m_filteredFrame)
        m_filteredFrame = av_frame_alloc();
    if (!m_packet) {
        m_packet = av_packet_alloc();
        av_new_packet(m_packet, 4);
    }
}

Frame BaseFFmpegFrameStream::read()
{
    allocateReadBuffers();
    av_packet_unref(m_packet);
    av_frame_unref(m_decodedFrame);
    if (!m_formatContext || !decodeNextPicture())
        return Frame{QImage(), 0.0, true};

    m_decodedFrame->pts = m_decodedFrame->best_effort_timestamp;
    const AVRational timeBase = m_formatContext->streams[m_videoStreamIndex]->time_base;
    const double timestamp = av_q2d(timeBase) * double(m_decodedFrame->pts);
    av_frame_make_writable(m_decodedFrame);

    // The consumer still holds the previous picture: drop this one unfiltered.
    if (m_frameInUse->load())
        return Frame{QImage(), timestamp, false};
    return filterPicture(timestamp);
}

bool BaseFFmpegFrameStream::decodeNextPicture()
{
    while (av_read_frame(m_formatContext, m_packet) >= 0) {
        if (m_packet->stream_index == m_videoStreamIndex) {
            m_lastPacketSize = m_packet->size;
            if (avcodec_send_packet(m_codecContext, m_packet) >= 0 &&
                avcodec_receive_frame(m_codecContext, m_decodedFrame) == 0) {
                av_packet_unref(m_packet);
                return true;
            }
        }
        av_packet_unref(m_packet);
    }
    return false;
}

Frame BaseFFmpegFrameStream::filterPicture(double timestamp)
{
    m_frameInUse->store(true);
    av_frame_unref(m_filteredFrame);
    if (av_buffersrc_add_frame(m_bufferSource, m_decodedFrame) < 0) {
        qCCritical(lcFrameSource) << "Error while feeding the filtergraph";
        m_frameInUse->store(false);
        return Frame{QImage(), timestamp, false};
    }
    if (av_buffersink_get_frame(m_bufferSink, m_filteredFrame) < 0) {
        qCCritical(lcFrameSource) << "Can't get frame from buffer sink";
        m_frameInUse->store(false);
        return Frame{QImage(), timestamp, false};
    }
    av_frame_make_writable(m_filteredFrame);
    return Frame{wrapFilteredFrame(), timestamp, false};
}

QImage BaseFFmpegFrameStream::wrapFilteredFrame()
{
    // The image aliases plane 0 without a copy and holds its own reference to
    // the picture; dropping the last copy of the image clears frame-in-use.
    auto *hold = new ImageHold{av_frame_clone(m_filteredFrame), m_frameInUse};
    const int bytesPerLine = hold->frame->linesize[0];
    return QImage(hold->frame->data[0], bytesPerLine / 4, hold->frame->height, bytesPerLine,
                  QImage::Format_RGBA8888, releaseImage, hold);
}

void BaseFFmpegFrameStream::close()
{
    QMutexLocker lock(&FFmpegMutex::instance());
    closeLocked();
}

void BaseFFmpegFrameStream::closeLocked()
{
    avfilter_graph_free(&m_filterGraph);
    m_bufferSource = nullptr;
    m_bufferSink = nullptr;
    avcodec_free_context(&m_codecContext);
    avformat_close_input(&m_formatContext);
    av_packet_free(&m_packet);
}

double BaseFFmpegFrameStream::fps() const
{
    return m_fps;
}

} // namespace VCam
