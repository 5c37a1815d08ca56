#include "backgroundstage.h"

#include "backgroundcompositor.h"
#include "cpubackgroundcompositor.h"
#include "imagebase.h"
#include "imagefile.h"
#include "picturesize.h"
#include "scenerenderer.h"
#include "segmentationworker.h"

#include <GLES3/gl3.h>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace Orb {

namespace {
// Background pictures beyond this are refused before decoding.
constexpr std::uintmax_t kMaxBackgroundImageBytes = 64ull * 1024 * 1024;
// ... and so are pictures that would decode to more pixels than this.
constexpr long long kMaxBackgroundPixels = 50'000'000;
// The network runs on every second frame; in between, the newest
// coefficients are applied to the frame's own luma, so edges still follow the
// picture. This halves the network's share of the processor at camera rate.
constexpr int kFramesPerMask = 2;
} // namespace

BackgroundStage::BackgroundStage() = default;
BackgroundStage::~BackgroundStage() = default;

void BackgroundStage::releaseGl()
{
    m_gpu.reset();
    m_imageTexture = Texture();
    m_lensMask = Texture();
}

bool BackgroundStage::setModelPath(const std::string &path, std::string &error)
{
    if (path == m_modelPath)
        return true;
    m_modelPath = path;
    m_segmenter.reset();
    m_haveMask = false;
    if (!isActive() || ensureSegmenter(error))
        return true;
    m_effect = BackgroundEffect();
    return false;
}

bool BackgroundStage::setEffect(const BackgroundEffect &effect, std::string &error)
{
    m_effect = BackgroundEffect();
    m_image.reset();
    m_imageTexture = Texture();
    m_imageFrame.release();
    if (effect.mode == BackgroundEffect::Mode::Off)
        return true;
    if (!ensureSegmenter(error)) {
        error = "Background effect unavailable: " + error;
        return false;
    }
    if (effect.mode == BackgroundEffect::Mode::Image) {
        std::error_code ec;
        const auto size = std::filesystem::file_size(effect.imagePath, ec);
        if (!ec && size > kMaxBackgroundImageBytes) {
            error = "Background picture \"" + effect.imagePath + "\" is larger than 64 MB";
            return false;
        }
        int width = 0, height = 0;
        if (!PictureSize::read(effect.imagePath, width, height, error)) {
            error = "Background " + error;
            return false;
        }
        if (static_cast<long long>(width) * height > kMaxBackgroundPixels) {
            error = "Background picture \"" + effect.imagePath + "\" is " + std::to_string(width) + "x" +
                    std::to_string(height) + ", more than 50 megapixels";
            return false;
        }
        m_image = ImageFile::read(effect.imagePath, error);
        if (!m_image) {
            error = "Background " + error;
            return false;
        }
    }
    m_effect = effect;
    return true;
}

Texture BackgroundStage::process(const ImageBase &image, Texture &camera, bool synchronous,
                                 Mosaica::SceneRenderer *maskReader, std::string &error)
{
    try {
        if ((isActive() || maskReader) && updateMask(image, synchronous)) {
            const GLubyte *renderer = glGetString(GL_RENDERER);
            if (useCpuCompositing(renderer ? reinterpret_cast<const char *>(renderer) : ""))
                return composeOnCpu(image, camera, maskReader);
            camera.upload(image);
            return composeOnGpu(camera, maskReader);
        }
    } catch (const std::exception &e) {
        // The frame goes on without segmentation rather than failing.
        error = std::string("Background effect switched off: ") + e.what();
        m_effect = BackgroundEffect();
        m_segmenter.reset();
    }
    camera.upload(image);
    return camera;
}

bool BackgroundStage::ensureSegmenter(std::string &error)
{
    if (m_segmenter && m_segmenter->isLoaded())
        return true;
    if (m_modelPath.empty()) {
        error = "no segmentation model is set";
        return false;
    }
    if (!m_segmenter)
        m_segmenter = std::make_unique<SegmentationWorker>();
    m_haveMask = false;
    if (!m_segmenter->load(m_modelPath, error)) {
        error = "the segmentation model cannot be used: " + error;
        return false;
    }
    return true;
}

bool BackgroundStage::updateMask(const ImageBase &image, bool synchronous)
{
    if (!m_segmenter || !m_segmenter->isLoaded())
        return false;
    const int type = image.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : image.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    PersonSegmenter::Result result;
    if (m_segmenter->takeResult(result)) {
        m_coefficients = result.coefficients;
        m_coefficientsChanged = true;
    }
    const bool maskDue = synchronous || !m_haveMask || ++m_framesSinceMask >= kFramesPerMask;
    if (!maskDue)
        return true;
    m_framesSinceMask = 0;
    const cv::Mat view(image.height(), image.width(), type, const_cast<uint8_t *>(image.data()),
                       image.bytesPerLine());
    cv::Mat small = PersonSegmenter::shrink(view, image.colorSpace() != ColorSpace::BGRA);
    if (synchronous || !m_haveMask) {
        // The first mask (and every mask in synchronous mode) belongs to its
        // own frame; after that the mask of a frame is used on the next one.
        result = m_segmenter->runNow(small);
        m_coefficients = result.coefficients;
        m_coefficientsChanged = m_haveMask = true;
        return true;
    }
    m_segmenter->submit(std::move(small));
    return true;
}

bool BackgroundStage::useCpuCompositing(const std::string &renderer)
{
    if (m_cpuCompositing < 0) {
        // A software renderer spends more processor time on one full-size
        // pass than the CPU needs for the whole effect.
        const char *forced = std::getenv("GLINT_BACKGROUND_COMPOSITING");
        if (forced && (std::string(forced) == "cpu" || std::string(forced) == "gpu"))
            m_cpuCompositing = std::string(forced) == "cpu";
        else
            m_cpuCompositing = renderer.find("llvmpipe") != std::string::npos ||
                               renderer.find("softpipe") != std::string::npos ||
                               renderer.find("Software") != std::string::npos;
    }
    return m_cpuCompositing == 1;
}

cv::Mat BackgroundStage::coverImage(const ImageBase &image, Size frame)
{
    const cv::Mat view(image.height(), image.width(), CV_8UC4, const_cast<uint8_t *>(image.data()),
                       image.bytesPerLine());
    // The largest centred part of the picture with the frame's proportions.
    const double scale = std::min(static_cast<double>(image.width()) / frame.width,
                                  static_cast<double>(image.height()) / frame.height);
    const int w = std::max(1, std::min(image.width(), static_cast<int>(std::lround(frame.width * scale))));
    const int h = std::max(1, std::min(image.height(), static_cast<int>(std::lround(frame.height * scale))));
    const cv::Rect crop((image.width() - w) / 2, (image.height() - h) / 2, w, h);
    cv::Mat out;
    cv::resize(view(crop), out, cv::Size(frame.width, frame.height), 0, 0,
               w > frame.width ? cv::INTER_AREA : cv::INTER_LINEAR);
    return out;
}

Texture BackgroundStage::composeOnGpu(const Texture &frame, Mosaica::SceneRenderer *maskReader)
{
    if (!m_gpu) {
        m_gpu = std::make_unique<BackgroundCompositor>();
        std::string error;
        if (!m_gpu->initialize(error))
            throw std::runtime_error(error);
        m_coefficientsChanged = true;
    }
    if (m_coefficientsChanged)
        m_gpu->setCoefficients(m_coefficients);
    m_coefficientsChanged = false;
    if (maskReader)
        maskReader->setSegmentation(
            m_gpu->renderMask(frame, {std::max(1, frame.width() / 2), std::max(1, frame.height() / 2)}));
    switch (m_effect.mode) {
    case BackgroundEffect::Mode::Off:
        break;
    case BackgroundEffect::Mode::Blur:
        return m_gpu->blur(frame, m_effect.blurStrength);
    case BackgroundEffect::Mode::Image:
        if (!m_imageTexture.isValid() || m_imageTexture.size() != frame.size()) {
            cv::Mat cover = coverImage(*m_image, frame.size());
            m_imageTexture =
                Texture::fromImage(ImageBase(cover.data, cover.cols, cover.rows, static_cast<int>(cover.step),
                                             ColorSpace::RGBA, ImageBase::doNothingDeallocator));
        }
        return m_gpu->replace(frame, m_imageTexture);
    }
    return frame;
}

Texture BackgroundStage::composeOnCpu(const ImageBase &image, Texture &camera,
                                      Mosaica::SceneRenderer *maskReader)
{
    if (!m_cpu)
        m_cpu = std::make_unique<CpuBackgroundCompositor>();
    m_cpu->setCoefficients(m_coefficients);
    const int type = image.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : image.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    const cv::Mat view(image.height(), image.width(), type, const_cast<uint8_t *>(image.data()),
                       image.bytesPerLine());
    // With no effect the frame is only read (for the mask) and goes up as
    // it came; an effect works on a copy.
    const bool readOnly =
        m_effect.mode == BackgroundEffect::Mode::Off && image.colorSpace() == ColorSpace::RGBA;
    switch (image.colorSpace()) {
    case ColorSpace::RGBA:
        if (!readOnly)
            view.copyTo(m_frameRgba);
        break;
    case ColorSpace::BGRA:
        cv::cvtColor(view, m_frameRgba, cv::COLOR_BGRA2RGBA);
        break;
    case ColorSpace::RGB:
        cv::cvtColor(view, m_frameRgba, cv::COLOR_RGB2RGBA);
        break;
    case ColorSpace::Gray:
        cv::cvtColor(view, m_frameRgba, cv::COLOR_GRAY2RGBA);
        break;
    }
    switch (m_effect.mode) {
    case BackgroundEffect::Mode::Off:
        m_cpu->computeHalfMask(readOnly ? view : m_frameRgba);
        break;
    case BackgroundEffect::Mode::Blur:
        m_cpu->blur(m_frameRgba, m_effect.blurStrength);
        break;
    case BackgroundEffect::Mode::Image:
        if (m_imageFrame.size() != m_frameRgba.size())
            m_imageFrame = coverImage(*m_image, image.getSize());
        m_cpu->replace(m_frameRgba, m_imageFrame);
        break;
    }
    if (maskReader) {
        // Lenses read the mask at half the frame's size, as it is made.
        const cv::Mat &half = m_cpu->halfMask();
        m_lensMask.upload(ImageBase(half.data, half.cols, half.rows, static_cast<int>(half.step),
                                    ColorSpace::Gray, ImageBase::doNothingDeallocator));
        maskReader->setSegmentation(m_lensMask);
    }
    if (readOnly)
        camera.upload(image);
    else
        camera.upload(ImageBase(m_frameRgba.data, m_frameRgba.cols, m_frameRgba.rows,
                                static_cast<int>(m_frameRgba.step), ColorSpace::RGBA,
                                ImageBase::doNothingDeallocator));
    return camera;
}

} // namespace Orb
