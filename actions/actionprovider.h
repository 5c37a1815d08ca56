#pragma once

#include "actiontypes.h"
#include "lensid.h"
#include "lensinfo.h"

#include <QImage>
#include <QKeySequence>
#include <QObject>
#include <QPointF>
#include <QUrl>
#include <memory>
#include <string>

namespace Bureau {
class Dispatcher;
}

namespace VCam {

// The interface's only way to change anything: each operation creates one
// action and hands it to the dispatcher. No operation checks its arguments
// or reads state; the stores decide what an action means.
class ActionProvider : public QObject
{
    Q_OBJECT
public:
    explicit ActionProvider(std::shared_ptr<Bureau::Dispatcher> dispatcher, QObject *parent = nullptr);

    Q_INVOKABLE void notifyStarted();
    Q_INVOKABLE void updateFrame(const QImage &frame);
    Q_INVOKABLE void setCamera(const QString &cameraName);
    Q_INVOKABLE void setActiveLens(const VCam::LensId &lensId, int context);
    Q_INVOKABLE void setLensFavorite(const VCam::LensId &lensId, bool value,
                                     VCam::ActionContext::LensActionContext context);
    Q_INVOKABLE void setCoreProcessingLens(const VCam::LensId &lensId, const QString &path);
    Q_INVOKABLE void setCoreProcessingOverlay(const QImage &image);
    Q_INVOKABLE void setCoreProcessingOverlayMirrored(bool mirrored);
    Q_INVOKABLE void setSearchFilter(const QString &filterFixedString);
    Q_INVOKABLE void notifyActiveLensChanged(const VCam::LensInfo &lensInfo);
    Q_INVOKABLE void notifyLensDownloaded(const VCam::LensId &lensId);
    Q_INVOKABLE void toggleLens(VCam::ActionContext::LensActionContext context);
    Q_INVOKABLE void toggleGlintcode();
    Q_INVOKABLE void setTwitchSubscriptionReactionEnabled(bool value);
    Q_INVOKABLE void setTwitchSubscriptionReactionForResubscribeEnabled(bool value);
    Q_INVOKABLE void setTwitchSubscriptionReactionIndependentOnTier(bool value);
    Q_INVOKABLE void setSecondaryLens(const VCam::LensId &lensId, VCam::LensRole lensRole);
    Q_INVOKABLE void setTwitchSubsriberThankEnabled(bool value);
    Q_INVOKABLE void setTwitchSecondaryLensTimeout(int value);
    Q_INVOKABLE void authorizeTwitch();
    Q_INVOKABLE void deauthorizeTwitch();
    Q_INVOKABLE void notifyTwitchUserAuthorized();
    Q_INVOKABLE void notifyTwitchUserDeauthorized();
    Q_INVOKABLE void openSettingsPage();
    Q_INVOKABLE void openTwitchPage();
    Q_INVOKABLE void openMainPage();
    Q_INVOKABLE void showPopupMessage(const QString &text, VCam::MessageType type);
    Q_INVOKABLE void notifySearchOpened();
    Q_INVOKABLE void notifyRecentsOpened();
    Q_INVOKABLE void notifyRecentsClosed();
    Q_INVOKABLE void saveGlintcode(const VCam::LensId &lensId, const QUrl &glintcodePath,
                                   VCam::ActionContext::LensActionContext context);
    Q_INVOKABLE void copyLensLink(const VCam::LensId &lensId, VCam::ActionContext::LensActionContext context);
    Q_INVOKABLE void reportLens(const VCam::LensId &lensId, VCam::LensReportType type,
                                const QString &description, VCam::ActionContext::LensActionContext context);
    Q_INVOKABLE void setCacheLimit(int value);
    Q_INVOKABLE void setMirrorPreview(bool value);
    Q_INVOKABLE void setAlwaysShowGlintcode(bool value);
    Q_INVOKABLE void setAutomaticUpdatesEnabled(bool value);
    Q_INVOKABLE void setCacheDir(const QUrl &value);
    Q_INVOKABLE void setGlobalShortcut(VCam::ShortcutRole role, const QKeySequence &value);
    Q_INVOKABLE void setLensShortcut(const VCam::LensId &lensId, const QKeySequence &value);
    Q_INVOKABLE void clearCache();
    Q_INVOKABLE void clearFavorites();
    Q_INVOKABLE void clearRecents();
    Q_INVOKABLE void clearAppIntegrations();
    Q_INVOKABLE void tapEvent(const QPointF &location);
    Q_INVOKABLE void touchBegin(const QPointF &location);
    Q_INVOKABLE void touchChange(const QPointF &location);
    Q_INVOKABLE void touchEnd(const QPointF &location);
    Q_INVOKABLE void externalEvent(const QString &type, const QString &data);
    Q_INVOKABLE void emulateExternalEvent();
    Q_INVOKABLE void emulateSubscriptionEvent();
    Q_INVOKABLE void checkForUpdates();
    // Runs the privileged set-up of the virtual camera (asks for a password).
    Q_INVOKABLE void setUpVirtualCamera();
    Q_INVOKABLE void skipUpdate(const QString &version);
    // Operations of this build beyond the common vocabulary.
    Q_INVOKABLE void setUsageStatisticsEnabled(bool value);
    // The effect behind the person: the strength counts for Blur, the image
    // (a file path) for Image.
    Q_INVOKABLE void setBackgroundEffect(VCam::BackgroundMode mode, VCam::BlurStrength blurStrength,
                                         const QString &imagePath);

    // The same as the invokable form, for services that hold byte strings.
    void externalEvent(const std::string &type, const std::string &data);

private:
    void dispatch(ActionType type, QVariant payload = {});
    void gesture(GestureType type, const QPointF &location);

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
};

} // namespace VCam
