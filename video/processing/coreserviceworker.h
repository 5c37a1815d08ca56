#pragma once

#include <QImage>
#include <QObject>
#include <QStringList>
#include <backgroundsetting.h>
#include <externalevent.h>
#include <functional>
#include <gestureevent.h>
#include <lensid.h>
#include <memory>

namespace Orb {
class ComplexEffect;
class CoreManager;
class TextureReader;
} // namespace Orb

namespace VCam {

class CompassTrackerDelegate;
class DeviceMotionTrackerDelegate;
class GestureHandler;
class GlintcodeDelegate;
class HintsDelegate;
class IVirtualCamService;
class LocationTrackerDelegate;
class MosaicaAudioDelegate;
class RemoteAssetsDelegate;
class VideoCodecFactory;
class WebcamStreamGrabber;

// Lives on the processing thread: owns the camera grabber, the AR core, its
// delegates and the virtual camera output, and runs every frame through the
// current lens. All its slots are reached through queued signals.
class CoreServiceWorker : public QObject
{
    Q_OBJECT
public:
    using VirtualCamFactory = std::function<std::shared_ptr<IVirtualCamService>()>;
    static constexpr int kMaxFailCount = 5;
    // Frames are cropped to this width / height before processing.
    static constexpr float kFrameAspectRatio = 16.0f / 9.0f;

    explicit CoreServiceWorker(VirtualCamFactory virtualCamFactory = {}, QObject *parent = nullptr);
    ~CoreServiceWorker() override;

    // The default output: the system's virtual camera, set up beside the program.
    static std::shared_ptr<IVirtualCamService> systemVirtualCam();

    int failCount() const { return m_failCount; }
    QImage overlay() const { return m_overlay; }
    bool overlayMirrored() const { return m_overlayMirrored; }
    WebcamStreamGrabber *grabber() const { return m_grabber; }
    // Faces the lens saw in the last processed frame.
    int trackedFaceCount() const;
    // Tests and benchmarks: frames are timed by their own timestamps and
    // face detection results are used a fixed number of frames after they
    // were asked for, so the same frames give the same faces on any machine.
    void setDeterministicTracking(bool deterministic) { m_deterministic = deterministic; }

public slots:
    void startProcessing();
    void stopProcessing();
    void restartOutput();
    void setInputCamera(const QString &camera);
    void setLens(const VCam::LensId &lensId, const QString &path);
    void setOverlay(const QImage &image);
    void setOverlayMirrored(bool mirrored);
    void setChromakeyEnabled(bool enabled);
    // Answers with backgroundEffectAnswered; a failed effect is left off.
    void setBackgroundEffect(const VCam::BackgroundSetting &setting);
    void processGesture(const VCam::GestureEvent &event);
    void proccessExternalEvent(const VCam::ExternalEvent &event);
    void onFrameReady(const QImage &frame, double timestamp = 0.0);

signals:
    void started();
    void stopped();
    void streamStateChanged(bool running);
    void frameReady(const QImage &frame);
    void showHintRequested(const QString &hintId);
    void hideHintRequested();
    void lensLoaded();
    void lensLoadError(const QString &error);
    void supportedExternalEventsChanged(const QStringList &supportedExternalTriggers);
    // The engine's answer to a background effect: an empty error when it runs.
    void backgroundEffectAnswered(const VCam::BackgroundSetting &setting, const QString &error);

private:
    void ensureCore();
    void installDelegates();
    QImage runLens(const QImage &frame, double timestamp);
    void restartTracking();
    QImage composeOutput(QImage result);
    QString applyBackgroundEffect();

    WebcamStreamGrabber *m_grabber = nullptr;
    std::shared_ptr<Orb::CoreManager> m_core;
    std::unique_ptr<Orb::TextureReader> m_textureReader;
    std::shared_ptr<Orb::ComplexEffect> m_activeEffect;
    std::shared_ptr<IVirtualCamService> m_virtualCam;
    VirtualCamFactory m_virtualCamFactory;

    std::shared_ptr<HintsDelegate> m_hints;
    std::shared_ptr<RemoteAssetsDelegate> m_remoteAssets;
    std::shared_ptr<CompassTrackerDelegate> m_compass;
    std::shared_ptr<LocationTrackerDelegate> m_location;
    std::shared_ptr<DeviceMotionTrackerDelegate> m_deviceMotion;
    std::shared_ptr<GlintcodeDelegate> m_glintcode;
    std::shared_ptr<MosaicaAudioDelegate> m_audio;
    std::shared_ptr<VideoCodecFactory> m_videoCodecs;
    std::unique_ptr<GestureHandler> m_gestures;

    int m_failCount = 0;
    bool m_deterministic = false;
    QImage m_overlay;
    bool m_overlayMirrored = false;
    QSize m_lastFrameSize{1280, 720};
    // The effect asked for, applied again whenever the core is made anew.
    BackgroundSetting m_background;
};

} // namespace VCam
