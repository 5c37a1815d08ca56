#include "coremanager.h"

#include "assetsystem.h"
#include "backgroundstage.h"
#include "complexeffect.h"
#include "effectsmanager.h"
#include "experimentprovider.h"
#include "facefeaturedetectorfactory.h"
#include "facetracker.h"
#include "fileutils.h"
#include "glcontext.h"
#include "hostdelegates.h"
#include "landmarkmodel.h"
#include "scene.h"
#include "scenerenderer.h"
#include "texture.h"

#include <chrono>
#include <future>
#include <opencv2/core/utility.hpp>
#include <stdexcept>

namespace Orb {

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

    // Person segmentation and the background effect.
    BackgroundStage background;

    std::weak_ptr<CompassTrackerDelegate> compass;
    std::weak_ptr<LocationTrackerDelegate> location;
    std::weak_ptr<DeviceMotionTrackerDelegate> motion;
    std::weak_ptr<GlintcodeDelegate> glintcode;
    std::weak_ptr<RemoteAssetsDelegate> remoteAssets;
    std::weak_ptr<HintsDelegate> hints;
    std::weak_ptr<VideoCodecFactory> videoCodecs;

    void ensureContext();
    bool ensureTracker(std::string &error);
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
    // The core runs its own threads side by side (frame, face fits,
    // segmentation). OpenCV's pool on top of them gains nothing on a small
    // machine and doubles what the network costs in spinning, so every
    // OpenCV call runs on the thread that makes it.
    cv::setNumThreads(1);
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
        d->background.releaseGl();
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
    Mosaica::SceneRenderer *maskReader =
        effect && effect->renderer().usesSegmentation() ? &effect->renderer() : nullptr;
    const bool tracks = effect && d->tracker.isInitialized();
    const FaceTracker::Detection detection = synchronousDetection       ? FaceTracker::Detection::Inline
                                             : config.lockstepDetection ? FaceTracker::Detection::Lockstep
                                                                        : FaceTracker::Detection::Background;
    // The background effect works on the frame's colours and the tracker on
    // its grey picture, independently: with both to do they run side by side.
    std::future<void> tracking;
    if (tracks && (d->background.isActive() || maskReader))
        tracking =
            std::async(std::launch::async, [&] { m_faces = d->tracker.process(image, now, detection); });
    const Texture source =
        d->background.process(image, d->camera, synchronousDetection, maskReader, m_lastError);
    if (tracking.valid())
        tracking.get();
    else if (tracks)
        m_faces = d->tracker.process(image, now, detection);
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
        d->background.ensureSegmenter(ignored);
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
    std::string error;
    if (!d->background.setModelPath(path, error))
        m_lastError = "Background effect switched off: " + error;
}

bool CoreManager::setBackgroundEffect(const BackgroundEffect &effect)
{
    m_lastError.clear();
    return d->background.setEffect(effect, m_lastError);
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
