#include "previewrunner.h"

#include <orb/complexeffect.h>
#include <cstdio>
#include <orb/effectsmanager.h>
#include <orb/externaleventsystem.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <orb/scene.h>
#include <sys/stat.h>

namespace {
bool isVideo(const std::string &path)
{
    for (const char *ext : {".mp4", ".avi", ".mkv", ".mov", ".webm"}) {
        const std::string e(ext);
        if (path.size() > e.size() && path.compare(path.size() - e.size(), e.size(), e) == 0)
            return true;
    }
    return false;
}

cv::Mat onCanvas(const cv::Mat &image, int width, int height)
{
    cv::Mat canvas(height, width, image.type(), cv::Scalar::all(0));
    const double scale =
        std::min(static_cast<double>(width) / image.cols, static_cast<double>(height) / image.rows);
    cv::Mat scaled;
    cv::resize(image, scaled, cv::Size(), scale, scale, cv::INTER_AREA);
    scaled.copyTo(
        canvas(cv::Rect((width - scaled.cols) / 2, (height - scaled.rows) / 2, scaled.cols, scaled.rows)));
    return canvas;
}
} // namespace

PreviewRunner::PreviewRunner(const PreviewOptions &options) : m_options(options) {}

bool PreviewRunner::loadLens()
{
    m_core = std::make_unique<Orb::CoreManager>(nullptr, m_options.debug, nullptr, nullptr);
    m_assets = std::make_shared<PreviewAssets>(*m_core, m_options.assetsFolder);
    m_core->setRemoteAssetsDelegate(m_assets);
    m_core->setSegmentationModelPath(m_options.segmentationModel);
    auto descriptor = std::make_shared<Orb::ComplexEffectDescriptor>("preview", m_options.lensFolder);
    if (!m_core->useComplexEffect(descriptor)) {
        std::fprintf(stderr, "lens does not load: %s\n", m_core->getLastError().c_str());
        return false;
    }
    return true;
}

void PreviewRunner::deliverInputs(double from, double to)
{
    auto effect = m_core->getEffectsManager()->getComplexEffect();
    for (const auto &in : m_options.inputs) {
        if (in.at < from || in.at >= to)
            continue;
        if (in.event.empty())
            m_core->processTouchEvent({Orb::TouchEvent::Type::Tap, in.x, in.y});
        else if (effect)
            effect->getScene()->getExternalEventSystem()->triggerEvents(in.event, "");
    }
}

cv::Mat PreviewRunner::renderFrame(const cv::Mat &bgr, double lensTime)
{
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    Orb::ImageBase image(rgba.data, rgba.cols, rgba.rows, static_cast<int>(rgba.step), Orb::ColorSpace::RGBA,
                         Orb::ImageBase::doNothingDeallocator);
    auto texture = m_core->processFrameToTexture(image, Orb::Timestamp::fromSeconds(lensTime), true, {});
    auto out = m_reader.readTextureToImage(texture.buildNormalizedTexture());
    return cv::Mat(out->height(), out->width(), CV_8UC4, out->data(), out->bytesPerLine()).clone();
}

cv::Mat PreviewRunner::finish(const cv::Mat &rgba) const
{
    cv::Mat bgr;
    cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
    if (m_options.width > 0)
        cv::resize(bgr, bgr, cv::Size(m_options.width, m_options.height), 0, 0, cv::INTER_AREA);
    return bgr;
}

int PreviewRunner::runStill(const cv::Mat &still)
{
    // Run the lens at 30 frames per second from time 0 so that tracking,
    // expression baselines and behaviours settle as they would live.
    const double step = 1.0 / 30.0;
    const bool folder = m_options.frames > 1;
    if (folder)
        mkdir(m_options.output.c_str(), 0755);
    double t = 0.0;
    for (int written = 0; written < m_options.frames;) {
        const double due = m_options.startSeconds + written * m_options.intervalMs / 1000.0;
        deliverInputs(t, t + step);
        cv::Mat frame = renderFrame(still, t);
        if (t + step / 2 >= due) {
            char name[32];
            std::snprintf(name, sizeof name, "/%02d.png", written);
            const std::string path = folder ? m_options.output + name : m_options.output;
            if (!cv::imwrite(path, finish(frame))) {
                std::fprintf(stderr, "cannot write %s\n", path.c_str());
                return 1;
            }
            ++written;
        }
        t += step;
    }
    return 0;
}

int PreviewRunner::runVideo()
{
    cv::VideoCapture capture(m_options.input);
    if (!capture.isOpened()) {
        std::fprintf(stderr, "cannot open video %s\n", m_options.input.c_str());
        return 1;
    }
    const double fps = capture.get(cv::CAP_PROP_FPS) > 0 ? capture.get(cv::CAP_PROP_FPS) : 30.0;
    cv::VideoWriter writer;
    cv::Mat frame;
    for (int index = 0; capture.read(frame); ++index) {
        const double t = index / fps;
        deliverInputs(t, t + 1.0 / fps);
        cv::Mat out = finish(renderFrame(frame, t));
        if (!writer.isOpened()) {
            const int codec = cv::VideoWriter::fourcc('m', 'p', '4', 'v');
            if (!writer.open(m_options.output, codec, fps, out.size())) {
                std::fprintf(stderr, "cannot write video %s\n", m_options.output.c_str());
                return 1;
            }
        }
        writer.write(out);
    }
    return 0;
}

int PreviewRunner::run()
{
    if (!loadLens())
        return 2;
    try {
        if (isVideo(m_options.input))
            return runVideo();
        cv::Mat still = cv::imread(m_options.input, cv::IMREAD_COLOR);
        if (still.empty()) {
            std::fprintf(stderr, "cannot read image %s\n", m_options.input.c_str());
            return 1;
        }
        if (m_options.canvasWidth > 0)
            still = onCanvas(still, m_options.canvasWidth, m_options.canvasHeight);
        return runStill(still);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "rendering failed: %s\n", e.what());
        return 3;
    }
}
