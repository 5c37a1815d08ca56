#include "coremanager.h"

#include "assetsystem.h"
#include "backgroundcompositor.h"
#include "complexeffect.h"
#include "cpubackgroundcompositor.h"
#include "effectsmanager.h"
#include "experimentprovider.h"
#include "facefeaturedetectorfactory.h"
#include "facetracker.h"
#include "fileutils.h"
#include "glcontext.h"
#include "hostdelegates.h"
#include "imagefile.h"
#include "landmarkmodel.h"
#include "scene.h"
#include "scenerenderer.h"
#include "segmentationworker.h"
#include "texture.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace Orb {

namespace {
// Background pictures beyond this are refused before decoding.
constexpr std::uintmax_t kMaxBackgroundImageBytes = 64ull * 1024 * 1024;
} // namespace

struct CoreManager::Impl
{
    void *shareContext = nullptr;
    bool drawTrackingDebug = false;
    std::shared_ptr<FaceFeatureDetectorFactory> detectorFactory;
    std::shared_ptr<ExperimentProvider> experiments;
    std::unique_ptr<GlContext> context;
    FaceTracker tracker;
    Texture camera;
    CameraInfo cameraInfo;
    std::vector<std::shared_ptr<ComplexEffect>> retired;
    // Resizes frames when no lens is in use.
    std::unique_ptr<Mosaica::Scene> emptyScene;
    std::unique_ptr<Mosaica::SceneRenderer> passthrough;

    // Person segmentation, for background effects and lenses that read the
    // mask. The model loads on first use.
    std::string modelPath;
    std::unique_ptr<SegmentationWorker> segmenter;
    bool haveMask = false;
    cv::Mat coefficients; // the newest guided-filter coefficients
    bool coefficientsChanged = false;
    BackgroundEffect background;
    std::shared_ptr<ImageBase> backgroundImage;
    // Compositing runs on the GPU, or on the CPU under a software renderer.
    int cpuCompositing = -1; // -1: not decided yet
    std::unique_ptr<BackgroundCompositor> compositor;
    std::unique_ptr<CpuBackgroundCompositor> cpuCompositor;
    Texture backgroundTexture; // the image cropped and scaled to the frame
    cv::Mat backgroundFrame;   // the same in memory, for the CPU
    cv::Mat frameRgba;         // the frame being composited on the CPU
    Texture lensMask;          // the mask for lenses, from the CPU

    std::weak_ptr<CompassTrackerDelegate> compass;
    std::weak_ptr<LocationTrackerDelegate> location;
    std::weak_ptr<DeviceMotionTrackerDelegate> motion;
    std::weak_ptr<GlintcodeDelegate> glintcode;
    std::weak_ptr<RemoteAssetsDelegate> remoteAssets;
    std::weak_ptr<HintsDelegate> hints;
    std::weak_ptr<VideoCodecFactory> videoCodecs;

    void ensureContext();
    bool ensureTracker(std::string &error);
    bool ensureSegmenter(std::string &error);
    bool updateMask(const ImageBase &image, bool synchronous);
    bool useCpuCompositing();
    Texture composeOnGpu(const Texture &camera, bool lensMask, Mosaica::SceneRenderer *renderer);
    Texture composeOnCpu(const ImageBase &image, Mosaica::SceneRenderer *renderer);
    static cv::Mat coverImage(const ImageBase &image, Size frame);
    static bool needsFaces(const LensManifest &manifest);
};

void CoreManager::Impl::ensureContext()
{
    if (context) {
        if (!context->makeCurrent())
            throw std::runtime_error("the OpenGL context cannot be made current on this thread");
        return;
    }
    auto created = std::make_unique<GlContext>();
    std::string error;
    if (!created->create(error, shareContext))
        throw std::runtime_error("OpenGL ES 3 is not available: " + error);
    context = std::move(created);
}

bool CoreManager::Impl::ensureTracker(std::string &error)
{
    if (tracker.isInitialized())
        return true;
    const std::string path = detectorFactory ? detectorFactory->landmarkModelPath() : LandmarkModel::path();
    return tracker.initialize(path, error);
}

bool CoreManager::Impl::ensureSegmenter(std::string &error)
{
    if (segmenter && segmenter->isLoaded())
        return true;
    if (modelPath.empty()) {
        error = "no segmentation model is set";
        return false;
    }
    if (!segmenter)
        segmenter = std::make_unique<SegmentationWorker>();
    haveMask = false;
    if (!segmenter->load(modelPath, error)) {
        error = "the segmentation model cannot be used: " + error;
        return false;
    }
    return true;
}

bool CoreManager::Impl::updateMask(const ImageBase &image, bool synchronous)
{
    if (!segmenter || !segmenter->isLoaded())
        return false;
    const int type = image.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : image.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    const cv::Mat view(image.height(), image.width(), type, const_cast<uint8_t *>(image.data()),
                       image.bytesPerLine());
    cv::Mat small = PersonSegmenter::shrink(view, image.colorSpace() != ColorSpace::BGRA);
    PersonSegmenter::Result result;
    if (synchronous || !haveMask) {
        // The first mask (and every mask in synchronous mode) belongs to its
        // own frame; after that the mask of a frame is used on the next one.
        result = segmenter->runNow(small);
        coefficients = result.coefficients;
        coefficientsChanged = haveMask = true;
        return true;
    }
    if (segmenter->takeResult(result)) {
        coefficients = result.coefficients;
        coefficientsChanged = true;
    }
    segmenter->submit(std::move(small));
    return true;
}

bool CoreManager::Impl::useCpuCompositing()
{
    if (cpuCompositing < 0) {
        // A software renderer spends more processor time on one full-size
        // pass than the CPU needs for the whole effect.
        const char *forced = std::getenv("GLINT_BACKGROUND_COMPOSITING");
        const std::string renderer = context ? context->renderer() : std::string();
        if (forced && (std::string(forced) == "cpu" || std::string(forced) == "gpu"))
            cpuCompositing = std::string(forced) == "cpu";
        else
            cpuCompositing = renderer.find("llvmpipe") != std::string::npos ||
                             renderer.find("softpipe") != std::string::npos ||
                             renderer.find("Software") != std::string::npos;
    }
    return cpuCompositing == 1;
}

cv::Mat CoreManager::Impl::coverImage(const ImageBase &image, Size frame)
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

Texture CoreManager::Impl::composeOnGpu(const Texture &frame, bool lensMask, Mosaica::SceneRenderer *renderer)
{
    if (!compositor) {
        compositor = std::make_unique<BackgroundCompositor>();
        std::string error;
        if (!compositor->initialize(error))
            throw std::runtime_error(error);
        coefficientsChanged = true;
    }
    if (coefficientsChanged)
        compositor->setCoefficients(coefficients);
    coefficientsChanged = false;
    if (lensMask)
        renderer->setSegmentation(
            compositor->renderMask(frame, {std::max(1, frame.width() / 2), std::max(1, frame.height() / 2)}));
    switch (background.mode) {
    case BackgroundEffect::Mode::Off:
        break;
    case BackgroundEffect::Mode::Blur:
        return compositor->blur(frame, background.blurStrength);
    case BackgroundEffect::Mode::Image:
        if (!backgroundTexture.isValid() || backgroundTexture.size() != frame.size()) {
            cv::Mat cover = coverImage(*backgroundImage, frame.size());
            backgroundTexture =
                Texture::fromImage(ImageBase(cover.data, cover.cols, cover.rows, static_cast<int>(cover.step),
                                             ColorSpace::RGBA, ImageBase::doNothingDeallocator));
        }
        return compositor->replace(frame, backgroundTexture);
    }
    return frame;
}

Texture CoreManager::Impl::composeOnCpu(const ImageBase &image, Mosaica::SceneRenderer *renderer)
{
    if (!cpuCompositor)
        cpuCompositor = std::make_unique<CpuBackgroundCompositor>();
    cpuCompositor->setCoefficients(coefficients);
    const int type = image.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : image.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    const cv::Mat view(image.height(), image.width(), type, const_cast<uint8_t *>(image.data()),
                       image.bytesPerLine());
    switch (image.colorSpace()) {
    case ColorSpace::RGBA:
        view.copyTo(frameRgba);
        break;
    case ColorSpace::BGRA:
        cv::cvtColor(view, frameRgba, cv::COLOR_BGRA2RGBA);
        break;
    case ColorSpace::RGB:
        cv::cvtColor(view, frameRgba, cv::COLOR_RGB2RGBA);
        break;
    case ColorSpace::Gray:
        cv::cvtColor(view, frameRgba, cv::COLOR_GRAY2RGBA);
        break;
    }
    switch (background.mode) {
    case BackgroundEffect::Mode::Off:
        cpuCompositor->computeMask(frameRgba);
        break;
    case BackgroundEffect::Mode::Blur:
        cpuCompositor->blur(frameRgba, background.blurStrength);
        break;
    case BackgroundEffect::Mode::Image:
        if (backgroundFrame.size() != frameRgba.size())
            backgroundFrame = coverImage(*backgroundImage, image.getSize());
        cpuCompositor->replace(frameRgba, backgroundFrame);
        break;
    }
    if (renderer) {
        cv::Mat half;
        cv::resize(cpuCompositor->mask(), half,
                   cv::Size(std::max(1, image.width() / 2), std::max(1, image.height() / 2)), 0, 0,
                   cv::INTER_AREA);
        lensMask.upload(ImageBase(half.data, half.cols, half.rows, static_cast<int>(half.step),
                                  ColorSpace::Gray, ImageBase::doNothingDeallocator));
        renderer->setSegmentation(lensMask);
    }
    camera.upload(ImageBase(frameRgba.data, frameRgba.cols, frameRgba.rows, static_cast<int>(frameRgba.step),
                            ColorSpace::RGBA, ImageBase::doNothingDeallocator));
    return camera;
}

bool CoreManager::Impl::needsFaces(const LensManifest &manifest)
{
    for (const auto &b : manifest.behaviors) {
        if (b.trigger != LensTrigger::Start && b.trigger != LensTrigger::Tap &&
            b.trigger != LensTrigger::Event)
            return true;
    }
    for (const auto &e : manifest.effects) {
        if (e.kind == LensEffectKind::Sticker && e.anchor != LensAnchor::Screen)
            return true;
        if (e.kind == LensEffectKind::Shader) {
            std::string source;
            FileUtils::readFile(manifest.filePath(e.shaderFile), source);
            for (const char *name :
                 {"u_face", "u_leftEye", "u_rightEye", "u_nose", "u_mouth", "u_expressions", "u_landmarks"}) {
                if (source.find(name) != std::string::npos)
                    return true;
            }
        }
    }
    return false;
}

CoreManager::CoreManager(void *shareContext, bool drawTrackingDebug,
                         std::shared_ptr<FaceFeatureDetectorFactory> faceFeatureDetectorFactory,
                         std::shared_ptr<ExperimentProvider> experimentProvider)
    : d(std::make_unique<Impl>()), m_effects(std::make_shared<EffectsManager>())
{
    d->shareContext = shareContext;
    d->drawTrackingDebug = drawTrackingDebug;
    d->detectorFactory = std::move(faceFeatureDetectorFactory);
    d->experiments = std::move(experimentProvider);
}

CoreManager::~CoreManager()
{
    // GL objects must go while the context still exists.
    if (d->context && d->context->makeCurrent()) {
        m_effects->setComplexEffect(nullptr);
        d->retired.clear();
        d->passthrough.reset();
        d->compositor.reset();
        d->backgroundTexture = Texture();
        d->lensMask = Texture();
        d->camera = Texture();
    }
}

void CoreManager::setCameraInfo(const CameraInfo &info)
{
    d->cameraInfo = info;
}

TextureWithTransform CoreManager::processFrameToTexture(const ImageBase &image, Timestamp timestamp,
                                                        bool synchronousDetection,
                                                        const ImageProcessingConfig &config)
{
    if (image.getSize().isEmpty() || !image.data())
        throw std::runtime_error("empty frame");
    d->ensureContext();
    const double now =
        timestamp.isValid()
            ? timestamp.seconds()
            : std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    const Size output{config.outputWidth > 0 ? config.outputWidth : image.width(),
                      config.outputHeight > 0 ? config.outputHeight : image.height()};
    std::shared_ptr<ComplexEffect> effect = m_effects->getComplexEffect();
    m_faces.clear();
    const bool lensReadsMask = effect && effect->renderer().usesSegmentation();
    Mosaica::SceneRenderer *maskReader = lensReadsMask ? &effect->renderer() : nullptr;
    Texture source;
    try {
        if ((d->background.mode != BackgroundEffect::Mode::Off || lensReadsMask) &&
            d->updateMask(image, synchronousDetection)) {
            if (d->useCpuCompositing()) {
                source = d->composeOnCpu(image, maskReader);
            } else {
                d->camera.upload(image);
                source = d->composeOnGpu(d->camera, lensReadsMask, maskReader);
            }
        }
    } catch (const std::exception &e) {
        // The frame goes on without segmentation rather than failing.
        m_lastError = std::string("Background effect switched off: ") + e.what();
        d->background = BackgroundEffect();
        d->segmenter.reset();
        source = Texture();
    }
    if (!source.isValid()) {
        d->camera.upload(image);
        source = d->camera;
    }
    if (!effect) {
        Texture out = source;
        if (output != image.getSize()) {
            // Only resizing is needed: render through an empty lens.
            if (!d->passthrough) {
                d->emptyScene = std::make_unique<Mosaica::Scene>(LensManifest());
                d->passthrough = std::make_unique<Mosaica::SceneRenderer>();
                std::string error;
                if (!d->passthrough->load(*d->emptyScene, error))
                    throw std::runtime_error(error);
            }
            out = d->passthrough->render(source, *d->emptyScene, {}, output, false);
        }
        return TextureWithTransform(out, d->cameraInfo.transform);
    }
    if (d->tracker.isInitialized())
        m_faces = d->tracker.process(image, now,
                                     synchronousDetection       ? FaceTracker::Detection::Inline
                                     : config.lockstepDetection ? FaceTracker::Detection::Lockstep
                                                                : FaceTracker::Detection::Background);
    if (effect->startTime < 0.0)
        effect->startTime = now;
    auto scene = effect->getScene();
    if (auto assets = d->remoteAssets.lock())
        scene->getAssetSystem()->requestAll(*assets);
    scene->update(m_faces, now - effect->startTime);
    Texture out = effect->renderer().render(source, *scene, m_faces, output, d->drawTrackingDebug);
    return TextureWithTransform(out, d->cameraInfo.transform);
}

bool CoreManager::useComplexEffect(std::shared_ptr<ComplexEffectDescriptor> descriptor)
{
    m_lastError.clear();
    clearComplexEffect();
    if (!descriptor) {
        m_lastError = "no lens given";
        return false;
    }
    LensManifest manifest;
    if (!LensManifest::load(descriptor->lensPath, manifest, m_lastError))
        return false;
    const bool faces = Impl::needsFaces(manifest);
    try {
        d->ensureContext();
    } catch (const std::exception &e) {
        m_lastError = e.what();
        return false;
    }
    if (faces && !d->ensureTracker(m_lastError)) {
        m_lastError = "face tracking is not available: " + m_lastError;
        return false;
    }
    auto scene = std::make_shared<Mosaica::Scene>(std::move(manifest));
    auto renderer = std::make_unique<Mosaica::SceneRenderer>();
    if (!renderer->load(*scene, m_lastError))
        return false;
    scene->setTouchUsedByShaders(renderer->usesTouch());
    if (renderer->usesSegmentation()) {
        // Without a model the lens still runs; its shaders see the whole
        // picture as the person.
        std::string ignored;
        d->ensureSegmenter(ignored);
    }
    scene->setHintsDelegate(d->hints);
    m_effects->setComplexEffect(std::make_shared<ComplexEffect>(scene, std::move(renderer)));
    // The delegate looks the scene up through this manager, so ask only now.
    if (auto assets = d->remoteAssets.lock())
        scene->getAssetSystem()->requestAll(*assets);
    return true;
}

void CoreManager::clearComplexEffect()
{
    if (auto effect = m_effects->getComplexEffect()) {
        effect->getScene()->stop();
        d->retired.push_back(std::move(effect));
    }
    m_effects->setComplexEffect(nullptr);
    m_faces.clear();
}

void CoreManager::deinitializeUnusedFilters()
{
    if (d->context)
        d->context->makeCurrent();
    d->retired.clear();
}

void CoreManager::restartTracking(const TrackingRequestInfo &info)
{
    d->tracker.restart(info);
    m_faces.clear();
}

void CoreManager::setSegmentationModelPath(const std::string &path)
{
    if (path == d->modelPath)
        return;
    d->modelPath = path;
    d->segmenter.reset();
    d->haveMask = false;
    if (d->background.mode == BackgroundEffect::Mode::Off)
        return;
    std::string error;
    if (!d->ensureSegmenter(error)) {
        m_lastError = "Background effect switched off: " + error;
        d->background = BackgroundEffect();
    }
}

bool CoreManager::setBackgroundEffect(const BackgroundEffect &effect)
{
    m_lastError.clear();
    d->background = BackgroundEffect();
    d->backgroundImage.reset();
    d->backgroundTexture = Texture();
    d->backgroundFrame.release();
    if (effect.mode == BackgroundEffect::Mode::Off)
        return true;
    std::string error;
    if (!d->ensureSegmenter(error)) {
        m_lastError = "Background effect unavailable: " + error;
        return false;
    }
    if (effect.mode == BackgroundEffect::Mode::Image) {
        std::error_code ec;
        const auto size = std::filesystem::file_size(effect.imagePath, ec);
        if (!ec && size > kMaxBackgroundImageBytes) {
            m_lastError = "Background image \"" + effect.imagePath + "\" is larger than 64 MB";
            return false;
        }
        d->backgroundImage = ImageFile::read(effect.imagePath, error);
        if (!d->backgroundImage) {
            m_lastError = "Background " + error;
            return false;
        }
    }
    d->background = effect;
    return true;
}

bool CoreManager::processTouchEvent(const TouchEvent &event)
{
    auto effect = m_effects->getComplexEffect();
    return effect && effect->getScene()->handleTouch(event);
}

std::string CoreManager::getRendererName() const
{
    return d->context ? d->context->renderer() : std::string();
}

void CoreManager::setCompassTrackerDelegate(std::weak_ptr<CompassTrackerDelegate> delegate)
{
    d->compass = std::move(delegate);
}

void CoreManager::setLocationTrackerDelegate(std::weak_ptr<LocationTrackerDelegate> delegate)
{
    d->location = std::move(delegate);
}

void CoreManager::setDeviceMotionTrackerDelegate(std::weak_ptr<DeviceMotionTrackerDelegate> delegate)
{
    d->motion = std::move(delegate);
}

void CoreManager::setGlintcodeDelegate(std::weak_ptr<GlintcodeDelegate> delegate)
{
    d->glintcode = std::move(delegate);
}

void CoreManager::setRemoteAssetsDelegate(std::weak_ptr<RemoteAssetsDelegate> delegate)
{
    d->remoteAssets = std::move(delegate);
}

void CoreManager::setHintsDelegate(std::weak_ptr<HintsDelegate> delegate)
{
    d->hints = delegate;
    if (auto effect = m_effects->getComplexEffect())
        effect->getScene()->setHintsDelegate(std::move(delegate));
}

void CoreManager::setVideoCodecFactory(std::weak_ptr<VideoCodecFactory> factory)
{
    d->videoCodecs = std::move(factory);
}

} // namespace Orb
