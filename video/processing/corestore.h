#pragma once

#include <QImage>
#include <QStringList>
#include <QTimer>
#include <backgroundsetting.h>
#include <deque>
#include <functional>
#include <lensid.h>
#include <memory>
#include <store.h>

namespace Bureau {
class Dispatcher;
}

namespace VCam {

class CoreService;
class VirtualCamSetupHelper;

// The store of the "core" section: owns the processing service, turns camera
// and processing actions into its commands, and publishes the camera list,
// the processing state and the frames for the interface.
class CoreStore : public Store
{
    Q_OBJECT
    Q_PROPERTY(ProcessingState processingState READ processingState NOTIFY processingStateChanged)
    Q_PROPERTY(bool isTriggerAvailable READ isTriggerAvailable NOTIFY triggerAvailableChanged)
    Q_PROPERTY(QStringList webcamNames READ webcamNames NOTIFY webcamNamesChanged)
    Q_PROPERTY(QString currentWebcamName READ currentWebcamName NOTIFY currentWebcamNameChanged)
    Q_PROPERTY(bool alwaysShowGlintcode READ alwaysShowGlintcode NOTIFY alwaysShowGlintcodeChanged)
    Q_PROPERTY(bool mirrorGlintcode READ mirrorGlintcode NOTIFY mirrorGlintcodeChanged)
    Q_PROPERTY(bool isStreamRunning READ isStreamRunning NOTIFY streamStateChanged)
    Q_PROPERTY(bool isMainLensHint READ isMainLensHint NOTIFY mainLensHintChanged)
    Q_PROPERTY(QString currentLensId READ currentLensId NOTIFY currentLensIdChanged)
    // "ready", "deviceMissing" (the set-up step can make it), "driverMissing"
    // (v4l2loopback-dkms is not installed), "sinkMissing" or "settingUp".
    Q_PROPERTY(QString virtualCameraState READ virtualCameraState NOTIFY virtualCameraStateChanged)
    Q_PROPERTY(QString virtualCameraError READ virtualCameraError NOTIFY virtualCameraStateChanged)
    // The background effect in use: Off also when the chosen one failed, and
    // then backgroundError says why (empty while the effect runs).
    Q_PROPERTY(VCam::BackgroundMode backgroundMode READ backgroundMode NOTIFY backgroundChanged)
    Q_PROPERTY(VCam::BlurStrength backgroundBlurStrength READ backgroundBlurStrength NOTIFY backgroundChanged)
    Q_PROPERTY(QString backgroundImagePath READ backgroundImagePath NOTIFY backgroundChanged)
    Q_PROPERTY(QString backgroundError READ backgroundError NOTIFY backgroundChanged)
    // The background images that come with the program (file paths).
    Q_PROPERTY(QStringList bundledBackgrounds READ bundledBackgrounds CONSTANT)
public:
    enum ProcessingState { Started = 0, Stopped = 1 };
    Q_ENUM(ProcessingState)

    // Fetches the code image of a lens and answers with it (a null image
    // and a reason on failure).
    using GlintcodeFetcher =
        std::function<void(const LensId &lensId, std::function<void(const QImage &, const QString &error)>)>;
    // The hint that tells the user the lens waits for a tap or the hotkey.
    static const char *const kMainLensHint;
    static const char *const kEmulatedTrigger;

    CoreStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, CoreService *service,
              QObject *parent = nullptr);
    ~CoreStore() override;

    // Until a fetcher is given, asking for the code image clears the overlay.
    void setGlintcodeFetcher(GlintcodeFetcher fetcher) { m_glintcodeFetcher = std::move(fetcher); }

    ProcessingState processingState() const { return m_processingState; }
    bool isTriggerAvailable() const { return m_isTriggerAvailable; }
    QStringList webcamNames() const { return m_webcamNames; }
    QString currentWebcamName() const { return m_currentWebcamName; }
    bool alwaysShowGlintcode() const { return m_alwaysShowGlintcode; }
    bool mirrorGlintcode() const { return m_mirrorGlintcode; }
    bool isStreamRunning() const { return m_isStreamRunning; }
    bool isMainLensHint() const { return m_isMainLensHint; }
    QString currentLensId() const { return m_currentLensId; }
    QString virtualCameraState() const { return m_virtualCameraState; }
    QString virtualCameraError() const { return m_virtualCameraError; }
    CoreService *service() const { return m_service; }
    BackgroundMode backgroundMode() const { return m_background.mode; }
    BlurStrength backgroundBlurStrength() const { return m_background.blurStrength; }
    QString backgroundImagePath() const { return m_background.imagePath; }
    QString backgroundError() const { return m_backgroundError; }
    QStringList bundledBackgrounds() const { return m_bundledBackgrounds; }

    nlohmann::json saveSettings() const override;
    void loadSettings(const nlohmann::json &section) override;

public slots:
    void process(std::shared_ptr<Bureau::Action> action) override;
    void start() override;
    void stop() override;

signals:
    void processingStateChanged();
    void frameReady(const QImage &image);
    void triggerAvailableChanged();
    void webcamNamesChanged();
    void currentWebcamNameChanged();
    void alwaysShowGlintcodeChanged();
    void mirrorGlintcodeChanged();
    void streamStateChanged();
    void mainLensHintChanged();
    void currentLensIdChanged();
    void virtualCameraStateChanged();
    void backgroundChanged();
    void lensLoadFailed(const QString &error);
    // The engine's answer for a lens handed to it: an empty error when the
    // lens is loaded and running.
    void lensLoadAnswered(const LensId &lensId, const QString &error);

private slots:
    void onLensLoadError(const QString &error);
    void onSupportedExternalEventsChanged(const QStringList &triggers);
    void onStreamStateChanged(bool running);
    void onBackgroundEffectAnswered(const VCam::BackgroundSetting &setting, const QString &error);

private:
    void dispatch(int type, QVariant payload = {});
    void chooseWebcam(const QString &requested);
    void refreshGlintcodeOverlay();
    void emulateExternalEvent();
    void setTriggerAvailable(bool available);
    void refreshVirtualCamera();
    void setUpVirtualCamera();
    void onVirtualCameraSetUp(bool ready, const QString &error);
    void setVirtualCameraState(const QString &state, const QString &error);
    void setBackground(const BackgroundSetting &setting);

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    CoreService *m_service;
    GlintcodeFetcher m_glintcodeFetcher;
    ProcessingState m_processingState = Stopped;
    bool m_isTriggerAvailable = false;
    QStringList m_webcamNames;
    QString m_currentWebcamName;
    QString m_savedWebcamName;
    QString m_currentLensId = kInvalidLensId;
    // Lenses handed to the engine whose answer has not come yet, in order:
    // the engine answers each load, one at a time.
    std::deque<LensId> m_pendingLoads;
    bool m_alwaysShowGlintcode = false;
    bool m_mirrorGlintcode = false;
    bool m_isMainLensHint = false;
    bool m_isStreamRunning = false;
    bool m_serviceReady = false;
    bool m_startRequested = false;
    VirtualCamSetupHelper *m_cameraSetup;
    QTimer *m_cameraCheck;
    QString m_virtualCameraState = QStringLiteral("ready");
    QString m_virtualCameraError;
    BackgroundSetting m_background;
    QString m_backgroundError;
    QStringList m_bundledBackgrounds;
};

} // namespace VCam
