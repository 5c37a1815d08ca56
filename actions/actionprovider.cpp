#include "actionprovider.h"

#include "backgroundsetting.h"
#include "externalevent.h"
#include "gestureevent.h"
#include "globalshortcut.h"
#include "lenscommand.h"
#include "lensshortcut.h"
#include "popupmessage.h"

#include <action.h>
#include <dispatcher.h>

namespace VCam {

namespace {

QVariant lensCommand(const LensId &lensId, LensActionContext context = LensActionContext::None)
{
    LensCommand command;
    command.lensId = lensId;
    command.context = context;
    return QVariant::fromValue(command);
}

template <typename Fill> QVariant lensCommand(const LensId &lensId, LensActionContext context, Fill fill)
{
    LensCommand command;
    command.lensId = lensId;
    command.context = context;
    fill(command);
    return QVariant::fromValue(command);
}

} // namespace

ActionProvider::ActionProvider(std::shared_ptr<Bureau::Dispatcher> dispatcher, QObject *parent)
    : QObject(parent), m_dispatcher(std::move(dispatcher))
{}

void ActionProvider::dispatch(ActionType type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(static_cast<qint32>(type), std::move(payload)));
}

void ActionProvider::gesture(GestureType type, const QPointF &location)
{
    dispatch(ActionType::GestureEvent, QVariant::fromValue(GestureEvent{type, location}));
}

void ActionProvider::notifyStarted()
{
    dispatch(ActionType::Started);
}
void ActionProvider::updateFrame(const QImage &frame)
{
    dispatch(ActionType::UpdateFrame, frame);
}
void ActionProvider::setCamera(const QString &cameraName)
{
    dispatch(ActionType::SetInputCamera, cameraName);
}

void ActionProvider::setActiveLens(const LensId &lensId, int context)
{
    dispatch(ActionType::SetActiveLensId, lensCommand(lensId, static_cast<LensActionContext>(context)));
}

void ActionProvider::setLensFavorite(const LensId &lensId, bool value, LensActionContext context)
{
    dispatch(ActionType::SetLensFavorite,
             lensCommand(lensId, context, [&](LensCommand &c) { c.enabled = value; }));
}

void ActionProvider::setCoreProcessingLens(const LensId &lensId, const QString &path)
{
    dispatch(ActionType::SetCoreProcessingLens,
             lensCommand(lensId, LensActionContext::None, [&](LensCommand &c) { c.text = path; }));
}

void ActionProvider::setCoreProcessingOverlay(const QImage &image)
{
    dispatch(ActionType::SetCoreProcessingOverlay, image);
}

void ActionProvider::setCoreProcessingOverlayMirrored(bool mirrored)
{
    dispatch(ActionType::SetCoreProcessingOverlayMirrored, mirrored);
}

void ActionProvider::setSearchFilter(const QString &filter)
{
    dispatch(ActionType::SetSearchFilter, filter);
}

void ActionProvider::notifyActiveLensChanged(const LensInfo &lensInfo)
{
    dispatch(ActionType::ActiveLensChanged, QVariant::fromValue(lensInfo));
}

void ActionProvider::notifyLensDownloaded(const LensId &lensId)
{
    dispatch(ActionType::LensDownloaded, lensId);
}

void ActionProvider::toggleLens(LensActionContext context)
{
    dispatch(ActionType::ToggleLens, QVariant::fromValue(context));
}

void ActionProvider::toggleGlintcode()
{
    dispatch(ActionType::ToggleGlintcode);
}

void ActionProvider::setTwitchSubscriptionReactionEnabled(bool value)
{
    dispatch(ActionType::setTwitchSubscriptionReactionEnabled, value);
}

void ActionProvider::setTwitchSubscriptionReactionForResubscribeEnabled(bool value)
{
    dispatch(ActionType::setTwitchSubscriptionReactionForResubscribeEnabled, value);
}

void ActionProvider::setTwitchSubscriptionReactionIndependentOnTier(bool value)
{
    dispatch(ActionType::setTwitchSubscriptionReactionIndependentOnTier, value);
}

void ActionProvider::setSecondaryLens(const LensId &lensId, LensRole lensRole)
{
    dispatch(ActionType::SetSecondaryLens, lensCommand(lensId, LensActionContext::None, [&](LensCommand &c) {
                 c.kind = static_cast<qint32>(lensRole);
             }));
}

void ActionProvider::setTwitchSubsriberThankEnabled(bool value)
{
    dispatch(ActionType::SetTwitchSubscriberThankEnabled, value);
}

void ActionProvider::setTwitchSecondaryLensTimeout(int value)
{
    dispatch(ActionType::SetTwitchSecondaryLensTimeout, value);
}

void ActionProvider::authorizeTwitch()
{
    dispatch(ActionType::AuthorizeTwitch);
}
void ActionProvider::deauthorizeTwitch()
{
    dispatch(ActionType::DeauthorizeTwitch);
}
void ActionProvider::notifyTwitchUserAuthorized()
{
    dispatch(ActionType::TwitchUserAuthorized);
}
void ActionProvider::notifyTwitchUserDeauthorized()
{
    dispatch(ActionType::TwitchUserDeauthorized);
}
void ActionProvider::openSettingsPage()
{
    dispatch(ActionType::OpenSettingsPage);
}
void ActionProvider::openTwitchPage()
{
    dispatch(ActionType::OpenTwitchPage);
}
void ActionProvider::openMainPage()
{
    dispatch(ActionType::OpenMainPage);
}

void ActionProvider::showPopupMessage(const QString &text, MessageType type)
{
    dispatch(ActionType::ShowPopupMessage, QVariant::fromValue(PopupMessage{text, type}));
}

void ActionProvider::notifySearchOpened()
{
    dispatch(ActionType::NotifySearchOpened);
}
void ActionProvider::notifyRecentsOpened()
{
    dispatch(ActionType::NotifyRecentsOpened);
}
void ActionProvider::notifyRecentsClosed()
{
    dispatch(ActionType::NotifyRecentsClosed);
}

void ActionProvider::saveGlintcode(const LensId &lensId, const QUrl &glintcodePath, LensActionContext context)
{
    dispatch(ActionType::SaveGlintcode,
             lensCommand(lensId, context, [&](LensCommand &c) { c.url = glintcodePath; }));
}

void ActionProvider::copyLensLink(const LensId &lensId, LensActionContext context)
{
    dispatch(ActionType::CopyLensLink, lensCommand(lensId, context));
}

void ActionProvider::reportLens(const LensId &lensId, LensReportType type, const QString &description,
                                LensActionContext context)
{
    dispatch(ActionType::ReportLens, lensCommand(lensId, context, [&](LensCommand &c) {
                 c.kind = static_cast<qint32>(type);
                 c.text = description;
             }));
}

void ActionProvider::setCacheLimit(int value)
{
    dispatch(ActionType::SetCacheLimit, value);
}
void ActionProvider::setBackgroundEffect(BackgroundMode mode, BlurStrength blurStrength,
                                         const QString &imagePath)
{
    dispatch(ActionType::SetBackgroundEffect,
             QVariant::fromValue(BackgroundSetting{mode, blurStrength, imagePath}));
}

void ActionProvider::setMirrorPreview(bool value)
{
    dispatch(ActionType::SetMirrorPreview, value);
}
void ActionProvider::setAlwaysShowGlintcode(bool value)
{
    dispatch(ActionType::SetAlwaysShowGlintcode, value);
}

void ActionProvider::setAutomaticUpdatesEnabled(bool value)
{
    dispatch(ActionType::SetAutomaticUpdatesEnabled, value);
}

void ActionProvider::setUsageStatisticsEnabled(bool value)
{
    dispatch(ActionType::SetUsageStatisticsEnabled, value);
}

void ActionProvider::setCacheDir(const QUrl &value)
{
    dispatch(ActionType::SetCacheDir, value);
}

void ActionProvider::setGlobalShortcut(ShortcutRole role, const QKeySequence &value)
{
    dispatch(ActionType::SetGlobalShortcut, QVariant::fromValue(GlobalShortcut{role, value}));
}

void ActionProvider::setLensShortcut(const LensId &lensId, const QKeySequence &value)
{
    dispatch(ActionType::SetLensShortcut, QVariant::fromValue(LensShortcut{lensId, value}));
}

void ActionProvider::clearCache()
{
    dispatch(ActionType::ClearCache);
}
void ActionProvider::clearFavorites()
{
    dispatch(ActionType::ClearFavorites);
}
void ActionProvider::clearRecents()
{
    dispatch(ActionType::ClearRecents);
}
void ActionProvider::clearAppIntegrations()
{
    dispatch(ActionType::ClearAppIntegrations);
}
void ActionProvider::tapEvent(const QPointF &location)
{
    gesture(GestureType::Tap, location);
}
void ActionProvider::touchBegin(const QPointF &location)
{
    gesture(GestureType::TouchBegin, location);
}
void ActionProvider::touchChange(const QPointF &location)
{
    gesture(GestureType::TouchChange, location);
}
void ActionProvider::touchEnd(const QPointF &location)
{
    gesture(GestureType::TouchEnd, location);
}

void ActionProvider::externalEvent(const QString &type, const QString &data)
{
    externalEvent(type.toStdString(), data.toStdString());
}

void ActionProvider::externalEvent(const std::string &type, const std::string &data)
{
    ExternalEvent event{QByteArray::fromStdString(type), QByteArray::fromStdString(data)};
    dispatch(ActionType::ExternalEvent, QVariant::fromValue(event));
}

void ActionProvider::emulateExternalEvent()
{
    dispatch(ActionType::EmulateExternalEvent);
}
void ActionProvider::emulateSubscriptionEvent()
{
    dispatch(ActionType::EmulateSubscribeEvent);
}
void ActionProvider::checkForUpdates()
{
    dispatch(ActionType::CheckForUpdates);
}
void ActionProvider::setUpVirtualCamera()
{
    dispatch(ActionType::SetUpVirtualCamera);
}
void ActionProvider::skipUpdate(const QString &version)
{
    dispatch(ActionType::SkipUpdate, version);
}

} // namespace VCam
