#include "coreserviceworker.h"

#include "backgroundassets.h"
#include "backgroundimagecheck.h"
#include "compasstrackerdelegate.h"
#include "devicemotiontrackerdelegate.h"
#include "gesturehandler.h"
#include "glintcodedelegate.h"
#include "hintsdelegate.h"
#include "locationtrackerdelegate.h"
#include "mosaicaaudiodelegate.h"
#include "remoteassetsdelegate.h"
#include "videocodecfactory.h"
#include "videologging.h"
#include "virtualcamoutputhelper.h"
#include "virtualcamservice.h"
#include "webcamstreamgrabber.h"

#include <QCoreApplication>
#include <QPainter>
#include <limits>
#include <orb/backgroundeffect.h>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <orb/effectsmanager.h>
#include <orb/externaleventsystem.h>
#include <orb/scene.h>
#include <orb/texturereader.h>

namespace VCam {

namespace {

constexpr int kOverlaySide = 150;
constexpr int kOverlayMargin = 10;

Orb::TrackingRequestInfo unlimitedTracking()
{
    Orb::TrackingRequestInfo request;
    request.maxSearchSeconds = std::numeric_limits<float>::max();
    request.maxTrackingSeconds = std::numeric_limits<float>::max();
    return request;
}

// The camera as the core library sees it, described once from the first frame.
const Orb::CameraInfo &cameraInfo(const QSize &firstFrameSize)
{
    static const Orb::CameraInfo info(0, Orb::Size{firstFrameSize.width(), firstFrameSize.height()}, 24.45f,
                                      -1.0f, Orb::RectTransform());
    return info;
}

void releaseImage(void *info)
{
    delete static_cast<std::shared_ptr<Orb::ImageBase> *>(info);
}

Orb::BackgroundEffect toOrb(const BackgroundSetting &setting)
{
    Orb::BackgroundEffect effect;
    switch (setting.mode) {
    case BackgroundMode::Off:
        effect.mode = Orb::BackgroundEffect::Mode::Off;
        break;
    case BackgroundMode::Blur:
        effect.mode = Orb::BackgroundEffect::Mode::Blur;
        break;
    case BackgroundMode::Image:
        effect.mode = Orb::BackgroundEffect::Mode::Image;
        effect.imagePath = setting.imagePath.toStdString();
        break;
    }
    effect.blurStrength = setting.blurStrength == BlurStrength::Strong
                              ? Orb::BackgroundEffect::BlurStrength::Strong
                              : Orb::BackgroundEffect::BlurStrength::Light;
    return effect;
}

QStringList toStringList(const std::vector<std::string> &list)
{
    QStringList out;
    for (const auto &item : list)
        out << QString::fromStdString(item);
    return out;
}

} // namespace

CoreServiceWorker::CoreServiceWorker(VirtualCamFactory virtualCamFactory, QObject *parent)
    : QObject(parent), m_virtualCamFactory(std::move(virtualCamFactory))
{
    if (!m_virtualCamFactory)
        m_virtualCamFactory = &CoreServiceWorker::systemVirtualCam;
    m_grabber = new WebcamStreamGrabber(this);
    m_grabber->setAspectRatio(kFrameAspectRatio);
    connect(m_grabber, &BaseStreamGrabber::frameReady, this, &CoreServiceWorker::onFrameReady);
    connect(m_grabber, &BaseStreamGrabber::streamStateChanged, this, [this](BaseStreamGrabber::State state) {
        emit streamStateChanged(state == BaseStreamGrabber::PlayState);
    });
    m_hints = std::make_shared<HintsDelegate>();
    connect(m_hints.get(), &HintsDelegate::showHintRequested, this, &CoreServiceWorker::showHintRequested);
    connect(m_hints.get(), &HintsDelegate::hideHintRequested, this, &CoreServiceWorker::hideHintRequested);
    m_compass = std::make_shared<CompassTrackerDelegate>();
    m_location = std::make_shared<LocationTrackerDelegate>();
    m_deviceMotion = std::make_shared<DeviceMotionTrackerDelegate>();
    m_glintcode = std::make_shared<GlintcodeDelegate>();
    m_audio = std::make_shared<MosaicaAudioDelegate>();
    m_videoCodecs = std::make_shared<VideoCodecFactory>();
}

CoreServiceWorker::~CoreServiceWorker()
{
    m_activeEffect.reset();
    m_gestures.reset();
    m_remoteAssets.reset();
    m_textureReader.reset();
    m_core.reset();
}

std::shared_ptr<IVirtualCamService> CoreServiceWorker::systemVirtualCam()
{
    return std::make_shared<VirtualCamService>(QCoreApplication::applicationDirPath().toStdWString());
}

void CoreServiceWorker::ensureCore()
{
    if (m_core)
        return;
    m_core = std::make_shared<Orb::CoreManager>(nullptr, false, nullptr, nullptr);
    m_textureReader = std::make_unique<Orb::TextureReader>();
    m_remoteAssets =
        std::make_shared<RemoteAssetsDelegate>(m_core, RemoteAssetsDelegate::defaultBundlePath());
    m_gestures = std::make_unique<GestureHandler>(m_core);
    installDelegates();
    m_core->setSegmentationModelPath(BackgroundAssets::segmentationModelPath().toStdString());
    if (m_background.mode != BackgroundMode::Off)
        emit backgroundEffectAnswered(m_background, applyBackgroundEffect());
}

void CoreServiceWorker::installDelegates()
{
    m_core->setCompassTrackerDelegate(m_compass);
    m_core->setLocationTrackerDelegate(m_location);
    m_core->setDeviceMotionTrackerDelegate(m_deviceMotion);
    m_core->setGlintcodeDelegate(m_glintcode);
    m_core->setRemoteAssetsDelegate(m_remoteAssets);
    m_core->setHintsDelegate(m_hints);
    m_core->setVideoCodecFactory(m_videoCodecs);
    m_core->getEffectsManager()->setMosaicaAudioDelegate(m_audio);
}

void CoreServiceWorker::startProcessing()
{
    ensureCore();
    // The grabber plays once a camera is chosen (setInputCamera).
    m_virtualCam = m_virtualCamFactory ? m_virtualCamFactory() : nullptr;
    if (m_virtualCam)
        VirtualCamOutputHelper::startOutput(*m_virtualCam);
    emit started();
}

// Only while processing runs: the output starts with processing anyway.
void CoreServiceWorker::restartOutput()
{
    if (!m_virtualCam)
        return;
    m_virtualCam->stop();
    VirtualCamOutputHelper::startOutput(*m_virtualCam);
}

void CoreServiceWorker::stopProcessing()
{
    m_grabber->stop();
    if (m_virtualCam)
        m_virtualCam->stop();
    m_activeEffect.reset();
    m_gestures.reset();
    m_remoteAssets.reset();
    m_textureReader.reset();
    m_core.reset();
    emit stopped();
}

void CoreServiceWorker::setInputCamera(const QString &camera)
{
    m_grabber->setDevice(camera);
    m_grabber->changeStreamState(BaseStreamGrabber::PlayState);
}

int CoreServiceWorker::trackedFaceCount() const
{
    return m_core ? int(m_core->getTrackedFaces().size()) : 0;
}

void CoreServiceWorker::onFrameReady(const QImage &frame, double timestamp)
{
    QImage result;
    if (m_failCount < kMaxFailCount) {
        try {
            result = runLens(frame, timestamp);
            m_failCount = 0;
        } catch (const std::exception &error) {
            ++m_failCount;
            qCWarning(lcProcessing).noquote() << error.what();
            if (m_failCount == kMaxFailCount)
                qCWarning(lcProcessing)
                    << "Max frame processing fail count. Pause effect application till lens reset";
        }
    }
    if (result.isNull())
        result = frame;
    if (result.isNull())
        return;
    m_lastFrameSize = frame.size();
    const QImage output = VirtualCamOutputHelper::outputFrame(composeOutput(result));
    if (m_virtualCam)
        VirtualCamOutputHelper::writeFrame(*m_virtualCam, output);
    emit frameReady(output);
}

QImage CoreServiceWorker::runLens(const QImage &frame, double timestamp)
{
    ensureCore();
    Orb::ImageBase image(const_cast<uint8_t *>(frame.constBits()), frame.width(), frame.height(),
                         int(frame.bytesPerLine()), Orb::ColorSpace::RGBA,
                         &Orb::ImageBase::doNothingDeallocator);
    m_core->setCameraInfo(cameraInfo(frame.size()));
    Orb::ImageProcessingConfig config;
    config.lockstepDetection = m_deterministic;
    const Orb::TextureWithTransform rendered = m_core->processFrameToTexture(
        image, m_deterministic ? Orb::Timestamp::fromSeconds(timestamp) : Orb::Timestamp::invalid(), false,
        config);
    const Orb::Texture normalized = rendered.buildNormalizedTexture();
    auto *pixels = new std::shared_ptr<Orb::ImageBase>(m_textureReader->readTextureToImage(normalized));
    const Orb::ImageBase &out = **pixels;
    return QImage(out.data(), out.width(), out.height(), out.bytesPerLine(), QImage::Format_RGBA8888,
                  &releaseImage, pixels);
}

QImage CoreServiceWorker::composeOutput(QImage result)
{
    if (m_overlay.isNull())
        return result;
    if (result.format() != QImage::Format_RGBA8888 && result.format() != QImage::Format_RGB888)
        result = result.convertToFormat(QImage::Format_RGBA8888);
    QPainter painter(&result);
    painter.setRenderHint(QPainter::Antialiasing);
    const int y = result.height() - m_overlay.height() - kOverlayMargin;
    const int x = m_overlayMirrored ? kOverlayMargin : result.width() - m_overlay.width() - kOverlayMargin;
    painter.drawImage(x, y, m_overlay);
    return result;
}

void CoreServiceWorker::restartTracking()
{
    if (m_core)
        m_core->restartTracking(unlimitedTracking());
}

void CoreServiceWorker::setLens(const LensId &lensId, const QString &path)
{
    m_failCount = 0;
    ensureCore();
    m_core->deinitializeUnusedFilters();
    m_core->clearComplexEffect();
    m_activeEffect.reset();
    if (path.isEmpty()) {
        emit supportedExternalEventsChanged({});
        return;
    }
    auto descriptor =
        std::make_shared<Orb::ComplexEffectDescriptor>(lensId.toStdString(), path.toStdString());
    if (!m_core->useComplexEffect(descriptor)) {
        emit lensLoadError(QString::fromStdString(m_core->getLastError()));
        emit supportedExternalEventsChanged({});
        return;
    }
    restartTracking();
    m_activeEffect = m_core->getEffectsManager()->getComplexEffect();
    const auto scene = m_activeEffect ? m_activeEffect->getScene() : nullptr;
    emit lensLoaded();
    emit supportedExternalEventsChanged(scene ? toStringList(scene->getSupportedExternalTriggers())
                                              : QStringList());
}

void CoreServiceWorker::processGesture(const GestureEvent &event)
{
    if (m_gestures && m_gestures->handle(event, m_lastFrameSize))
        restartTracking();
}

void CoreServiceWorker::proccessExternalEvent(const ExternalEvent &event)
{
    const auto scene = m_activeEffect ? m_activeEffect->getScene() : nullptr;
    const auto events = scene ? scene->getExternalEventSystem() : nullptr;
    if (!events)
        return;
    try {
        events->triggerEvents(event.type.toStdString(), event.data.toStdString());
    } catch (const std::exception &error) {
        qCWarning(lcProcessing).noquote() << "ExternalEventSystem exception:" << error.what();
    }
}

void CoreServiceWorker::setOverlay(const QImage &image)
{
    if (image.isNull()) {
        m_overlay = QImage();
        return;
    }
    m_overlay = image.scaled(kOverlaySide, kOverlaySide, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (m_overlayMirrored)
        m_overlay = m_overlay.mirrored(true, false);
}

void CoreServiceWorker::setOverlayMirrored(bool mirrored)
{
    if (mirrored == m_overlayMirrored)
        return;
    m_overlayMirrored = mirrored;
    if (!m_overlay.isNull())
        m_overlay = m_overlay.mirrored(true, false);
}

void CoreServiceWorker::setBackgroundEffect(const BackgroundSetting &setting)
{
    m_background = setting;
    if (!m_core) {
        ensureCore(); // applies it and answers
        return;
    }
    emit backgroundEffectAnswered(setting, applyBackgroundEffect());
}

// The image is looked at here, before the core decodes it, so that a bad or
// huge file from the settings is refused without decoding it.
QString CoreServiceWorker::applyBackgroundEffect()
{
    QString error;
    if (m_background.mode == BackgroundMode::Image)
        error = BackgroundImageCheck::problemWith(m_background.imagePath);
    if (error.isEmpty()) {
        if (m_core->setBackgroundEffect(toOrb(m_background)))
            return {};
        error = QString::fromStdString(m_core->getLastError());
        if (error.isEmpty())
            error = tr("The background effect could not be started.");
    }
    qCWarning(lcProcessing).noquote() << "Background effect not applied:" << error;
    m_background = BackgroundSetting{BackgroundMode::Off, m_background.blurStrength, m_background.imagePath};
    m_core->setBackgroundEffect(Orb::BackgroundEffect{});
    return error;
}

void CoreServiceWorker::setChromakeyEnabled(bool)
{
    // Accepted for the interface's sake; the processing has no chroma key.
}

} // namespace VCam
