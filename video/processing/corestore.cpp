#include "corestore.h"

#include "backgroundassets.h"
#include "cameralist.h"
#include "coreservice.h"
#include "videologging.h"
#include "virtualcamsetuphelper.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>
#include <actiontypes.h>
#include <dispatcher.h>
#include <externalevent.h>
#include <gestureevent.h>
#include <lenscommand.h>
#include <popupmessage.h>

namespace VCam {

const char *const CoreStore::kMainLensHint = "lens_hint_tap";
const char *const CoreStore::kEmulatedTrigger = "trigger1";

namespace {
const char *const kCameraKey = "camera";
// "background": {"mode": "off" | "blur" | "image", "blurStrength": "light" |
// "strong", "imagePath": a file path}
const char *const kBackgroundKey = "background";
const char *const kModeKey = "mode";
const char *const kBlurStrengthKey = "blurStrength";
const char *const kImagePathKey = "imagePath";
// Longer than any real path; a longer one in the file is ignored.
constexpr size_t kMaxImagePathBytes = 4096;

const char *modeName(BackgroundMode mode)
{
    switch (mode) {
    case BackgroundMode::Blur:
        return "blur";
    case BackgroundMode::Image:
        return "image";
    case BackgroundMode::Off:
        break;
    }
    return "off";
}

std::string stringMember(const nlohmann::json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// Anything unknown or malformed reads as "off" / "light" / no image.
BackgroundSetting backgroundFromJson(const nlohmann::json &object)
{
    BackgroundSetting setting;
    if (!object.is_object())
        return setting;
    const std::string mode = stringMember(object, kModeKey);
    setting.mode = mode == "blur"    ? BackgroundMode::Blur
                   : mode == "image" ? BackgroundMode::Image
                                     : BackgroundMode::Off;
    setting.blurStrength =
        stringMember(object, kBlurStrengthKey) == "strong" ? BlurStrength::Strong : BlurStrength::Light;
    const std::string path = stringMember(object, kImagePathKey);
    if (path.size() <= kMaxImagePathBytes)
        setting.imagePath = QString::fromStdString(path);
    return setting;
}

nlohmann::json backgroundToJson(const BackgroundSetting &setting)
{
    return {{kModeKey, modeName(setting.mode)},
            {kBlurStrengthKey, setting.blurStrength == BlurStrength::Strong ? "strong" : "light"},
            {kImagePathKey, setting.imagePath.toStdString()}};
}
} // namespace

CoreStore::CoreStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, CoreService *service, QObject *parent)
    : Store(parent), m_dispatcher(std::move(dispatcher)), m_service(service),
      m_cameraSetup(new VirtualCamSetupHelper(QCoreApplication::applicationDirPath(), this)),
      m_cameraCheck(new QTimer(this)), m_bundledBackgrounds(BackgroundAssets::bundledImages())
{
    // Installing the driver package or loading the module by hand is
    // noticed without a restart.
    m_cameraCheck->setInterval(2000);
    connect(m_cameraCheck, &QTimer::timeout, this, &CoreStore::refreshVirtualCamera);
    connect(m_cameraSetup, &VirtualCamSetupHelper::setUpFinished, this, &CoreStore::onVirtualCameraSetUp);
    m_service->setParent(this);
    connect(m_service, &CoreService::frameReady, this, &CoreStore::frameReady);
    connect(m_service, &CoreService::lensLoaded, this, [this] {
        if (m_pendingLoads.empty())
            return;
        const LensId lensId = m_pendingLoads.front();
        m_pendingLoads.pop_front();
        emit lensLoadAnswered(lensId, QString());
    });
    connect(m_service, &CoreService::lensLoadError, this, &CoreStore::onLensLoadError);
    connect(m_service, &CoreService::supportedExternalEventsChanged, this,
            &CoreStore::onSupportedExternalEventsChanged);
    connect(m_service, &CoreService::showHintRequested, this,
            [this](const QString &hintId) { dispatch(int(ActionType::ShowLensHint), hintId); });
    connect(m_service, &CoreService::hideHintRequested, this,
            [this] { dispatch(int(ActionType::HideLensHint)); });
    connect(m_service, &CoreService::streamStateChanged, this, &CoreStore::onStreamStateChanged);
    connect(m_service, &CoreService::backgroundEffectAnswered, this, &CoreStore::onBackgroundEffectAnswered);
    connect(m_service, &CoreService::started, this, [this] {
        m_serviceReady = true;
        if (m_startRequested) {
            emit m_service->startProcessing();
            emit started();
        }
    });
}

CoreStore::~CoreStore() = default;

void CoreStore::dispatch(int type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(type, std::move(payload)));
}

void CoreStore::start()
{
    // The store counts as started once its processing thread is ready.
    m_startRequested = true;
    if (!m_serviceReady)
        return;
    emit m_service->startProcessing();
    emit started();
}

void CoreStore::stop()
{
    if (!m_serviceReady || !m_service->isRunning()) {
        emit stopped();
        return;
    }
    auto done = std::make_shared<bool>(false);
    const auto finish = [this, done] {
        if (*done)
            return;
        *done = true;
        emit stopped();
    };
    connect(m_service, &QThread::finished, this, finish);
    QTimer::singleShot(int(CoreService::kExitWaitMs), this, finish);
    emit m_service->stopProcessing();
}

nlohmann::json CoreStore::saveSettings() const
{
    const QString camera = m_currentWebcamName.isEmpty() ? m_savedWebcamName : m_currentWebcamName;
    return {{kCameraKey, camera.toStdString()}, {kBackgroundKey, backgroundToJson(m_background)}};
}

void CoreStore::refreshVirtualCamera()
{
    if (m_cameraSetup->isRunning())
        return;
    QString state;
    switch (m_cameraSetup->readiness()) {
    case VirtualCamSystem::Readiness::Ready:
        state = QStringLiteral("ready");
        break;
    case VirtualCamSystem::Readiness::SinkMissing:
        state = QStringLiteral("sinkMissing");
        break;
    case VirtualCamSystem::Readiness::DriverMissing:
        state = QStringLiteral("driverMissing");
        break;
    case VirtualCamSystem::Readiness::DeviceMissing:
        state = QStringLiteral("deviceMissing");
        break;
    }
    if (state == QLatin1String("ready") && m_virtualCameraState != state &&
        m_virtualCameraState != "settingUp")
        emit m_service->restartOutput();
    setVirtualCameraState(state, state == m_virtualCameraState ? m_virtualCameraError : QString());
    if (state == QLatin1String("ready"))
        m_cameraCheck->stop();
    else if (!m_cameraCheck->isActive())
        m_cameraCheck->start();
}

void CoreStore::setUpVirtualCamera()
{
    refreshVirtualCamera();
    if (m_virtualCameraState == QLatin1String("deviceMissing") && m_cameraSetup->setUp())
        setVirtualCameraState(QStringLiteral("settingUp"), QString());
}

void CoreStore::onVirtualCameraSetUp(bool ready, const QString &error)
{
    if (ready) {
        setVirtualCameraState(QStringLiteral("ready"), QString());
        m_cameraCheck->stop();
        emit m_service->restartOutput();
        return;
    }
    setVirtualCameraState(QStringLiteral("deviceMissing"), error);
    refreshVirtualCamera();
}

void CoreStore::setVirtualCameraState(const QString &state, const QString &error)
{
    if (state == m_virtualCameraState && error == m_virtualCameraError)
        return;
    m_virtualCameraState = state;
    m_virtualCameraError = error;
    emit virtualCameraStateChanged();
}

void CoreStore::loadSettings(const nlohmann::json &section)
{
    if (section.is_object() && section.contains(kCameraKey) && section[kCameraKey].is_string())
        m_savedWebcamName = QString::fromStdString(section[kCameraKey].get<std::string>());
    if (section.is_object() && section.contains(kBackgroundKey))
        setBackground(backgroundFromJson(section[kBackgroundKey]));
}

void CoreStore::process(std::shared_ptr<Bureau::Action> action)
{
    const QVariant &payload = action->payload;
    switch (static_cast<ActionType>(action->type)) {
    case ActionType::Started:
        if (m_processingState != Started) {
            m_processingState = Started;
            emit processingStateChanged();
        }
        chooseWebcam(m_savedWebcamName);
        if (m_background.mode != BackgroundMode::Off)
            emit m_service->setBackgroundEffect(m_background);
        refreshVirtualCamera();
        break;
    case ActionType::SetBackgroundEffect:
        // The effect in use asked for again (a second click) changes nothing.
        if (!payload.canConvert<BackgroundSetting>() ||
            (payload.value<BackgroundSetting>() == m_background && m_backgroundError.isEmpty()))
            break;
        setBackground(payload.value<BackgroundSetting>());
        emit m_service->setBackgroundEffect(m_background);
        break;
    case ActionType::SetUpVirtualCamera:
        setUpVirtualCamera();
        break;
    case ActionType::SetChromakeyEnabled:
        emit m_service->setChromakeyEnabled(payload.toBool());
        break;
    case ActionType::SetInputCamera:
        chooseWebcam(payload.toString());
        break;
    case ActionType::SetAlwaysShowGlintcode:
        if (payload.toBool() == m_alwaysShowGlintcode)
            break;
        m_alwaysShowGlintcode = payload.toBool();
        refreshGlintcodeOverlay();
        emit alwaysShowGlintcodeChanged();
        break;
    case ActionType::SetCoreProcessingLens: {
        const auto lens = payload.value<LensCommand>();
        const LensId lensId = payload.canConvert<LensCommand>() ? lens.lensId : LensId();
        if (m_currentLensId != lensId) {
            m_currentLensId = lensId;
            emit currentLensIdChanged();
        }
        if (!lens.text.isEmpty())
            m_pendingLoads.push_back(lensId);
        emit m_service->setLens(lensId, lens.text);
        refreshGlintcodeOverlay();
        break;
    }
    case ActionType::SetCoreProcessingOverlay:
        emit m_service->setOverlay(payload.value<QImage>());
        break;
    case ActionType::SetCoreProcessingOverlayMirrored:
        if (payload.toBool() == m_mirrorGlintcode)
            break;
        m_mirrorGlintcode = payload.toBool();
        emit m_service->setOverlayMirrored(m_mirrorGlintcode);
        emit mirrorGlintcodeChanged();
        break;
    case ActionType::UpdateFrame:
        emit frameReady(payload.value<QImage>());
        break;
    case ActionType::GestureEvent:
        emit m_service->processGesture(payload.value<GestureEvent>());
        break;
    case ActionType::ExternalEvent:
        emit m_service->proccessExternalEvent(payload.value<ExternalEvent>());
        break;
    case ActionType::EmulateExternalEvent:
        emulateExternalEvent();
        break;
    case ActionType::SetMainLensHint: {
        const bool isMain = payload.toString() == QLatin1String(kMainLensHint);
        if (isMain != m_isMainLensHint) {
            m_isMainLensHint = isMain;
            emit mainLensHintChanged();
        }
        break;
    }
    default:
        break;
    }
}

void CoreStore::chooseWebcam(const QString &requested)
{
    const QStringList names = CameraList::availableCameras();
    if (names != m_webcamNames) {
        m_webcamNames = names;
        emit webcamNamesChanged();
    }
    QString choice;
    const bool isFile = CameraList::kindOf(requested.toStdString()) == CameraList::Kind::File;
    if (names.contains(requested) || (isFile && QFileInfo::exists(QString::fromStdString(
                                                    CameraList::filePathOf(requested.toStdString())))))
        choice = requested;
    else if (!names.isEmpty())
        choice = names.first();
    m_currentWebcamName = choice;
    emit currentWebcamNameChanged();
    emit m_service->setInputCamera(choice);
}

void CoreStore::refreshGlintcodeOverlay()
{
    if (!m_alwaysShowGlintcode || m_currentLensId == kInvalidLensId || m_currentLensId.isEmpty() ||
        !m_glintcodeFetcher) {
        dispatch(int(ActionType::SetCoreProcessingOverlay), QImage());
        return;
    }
    const LensId lensId = m_currentLensId;
    m_glintcodeFetcher(lensId, [this, lensId](const QImage &image, const QString &error) {
        if (image.isNull()) {
            qCWarning(lcCoreStore).noquote() << "Can't download glintcode for stream:" << error;
            return;
        }
        if (lensId == m_currentLensId && m_alwaysShowGlintcode)
            dispatch(int(ActionType::SetCoreProcessingOverlay), image);
    });
}

void CoreStore::emulateExternalEvent()
{
    if (m_isTriggerAvailable) {
        qCInfo(lcCoreStore) << "Process external event as trigger1";
        emit m_service->proccessExternalEvent(ExternalEvent{QByteArray(), QByteArray(kEmulatedTrigger)});
        return;
    }
    qCInfo(lcCoreStore) << "Process external event as tap";
    // A tap as a finger makes it: down, (no) movement, up.
    for (GestureType type : {GestureType::TouchBegin, GestureType::TouchEnd, GestureType::Tap})
        dispatch(int(ActionType::GestureEvent), QVariant::fromValue(GestureEvent{type, QPointF(0, 0)}));
}

void CoreStore::onLensLoadError(const QString &error)
{
    qCWarning(lcCoreStore).noquote() << "Lens could not be loaded:" << error;
    emit lensLoadFailed(error);
    if (!m_pendingLoads.empty()) {
        const LensId lensId = m_pendingLoads.front();
        m_pendingLoads.pop_front();
        emit lensLoadAnswered(lensId, error);
    }
    dispatch(int(ActionType::ShowPopupMessage),
             QVariant::fromValue(
                 PopupMessage{tr("This lens could not be loaded. %1").arg(error), MessageType::Warning}));
}

void CoreStore::setBackground(const BackgroundSetting &setting)
{
    if (setting == m_background && m_backgroundError.isEmpty())
        return;
    m_background = setting;
    m_backgroundError.clear();
    emit backgroundChanged();
}

// An answer to an effect that has since been replaced is of no interest:
// the newer one is on its way to the engine.
void CoreStore::onBackgroundEffectAnswered(const BackgroundSetting &setting, const QString &error)
{
    if (setting != m_background)
        return;
    if (error.isEmpty()) {
        qCInfo(lcCoreStore) << "Background effect applied:" << setting;
        return;
    }
    qCWarning(lcCoreStore).noquote() << "Background effect could not be applied:" << error;
    // An image that failed is not offered again (the reason names it).
    if (m_background.mode == BackgroundMode::Image)
        m_background.imagePath.clear();
    m_background.mode = BackgroundMode::Off;
    m_backgroundError = error;
    emit backgroundChanged();
    dispatch(int(ActionType::ShowPopupMessage),
             QVariant::fromValue(
                 PopupMessage{tr("The background effect is off: it could not be applied. %1").arg(error),
                              MessageType::Warning}));
}

void CoreStore::onSupportedExternalEventsChanged(const QStringList &triggers)
{
    setTriggerAvailable(triggers.contains(QLatin1String(kEmulatedTrigger)));
}

void CoreStore::setTriggerAvailable(bool available)
{
    if (available == m_isTriggerAvailable)
        return;
    m_isTriggerAvailable = available;
    emit triggerAvailableChanged();
}

void CoreStore::onStreamStateChanged(bool running)
{
    if (running == m_isStreamRunning)
        return;
    m_isStreamRunning = running;
    emit streamStateChanged();
}

} // namespace VCam
