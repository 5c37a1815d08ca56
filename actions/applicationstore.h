#pragma once

#include "actiontypes.h"
#include "lensid.h"
#include "popupmessage.h"

#include <QKeySequence>
#include <QVariantList>
#include <memory>
#include <store.h>

namespace Bureau {
class Dispatcher;
}

namespace VCam {

class IKeyboardShortcutManager;
class IUpdateService;

// The store of the "settings" section: application-wide preferences, the
// page the window shows, pop-up messages, hotkeys and the update offer.
class ApplicationStore : public Store
{
    Q_OBJECT
    Q_PROPERTY(bool mirrorPreview READ mirrorPreview NOTIFY mirrorPreviewChanged)
    Q_PROPERTY(bool showOnboarding READ showOnboarding NOTIFY showOnboardingChanged)
    Q_PROPERTY(
        bool automaticUpdatesEnabled READ automaticUpdatesEnabled NOTIFY automaticUpdatesEnabledChanged)
    Q_PROPERTY(bool alwaysShowGlintcode READ alwaysShowGlintcode NOTIFY alwaysShowGlintcodeChanged)
    Q_PROPERTY(bool usageStatisticsEnabled READ usageStatisticsEnabled NOTIFY usageStatisticsEnabledChanged)
    Q_PROPERTY(QString toggleLensShortcut READ toggleLensShortcut NOTIFY shortcutChanged)
    Q_PROPERTY(QString showHideGlintCodeShortcut READ showHideGlintCodeShortcut NOTIFY shortcutChanged)
    Q_PROPERTY(QString externalTriggerShortcut READ externalTriggerShortcut NOTIFY shortcutChanged)
    Q_PROPERTY(QString tapShortcut READ tapShortcut NOTIFY shortcutChanged)
    Q_PROPERTY(bool shortcutsAvailable READ shortcutsAvailable CONSTANT)
    Q_PROPERTY(QString shortcutsUnavailableReason READ shortcutsUnavailableReason CONSTANT)
    Q_PROPERTY(int currentPage READ currentPage NOTIFY currentPageChanged)
    Q_PROPERTY(QString currentVersion READ currentVersion CONSTANT)
    Q_PROPERTY(QString latestVersion READ latestVersion NOTIFY latestVersionChanged)
    Q_PROPERTY(QString releaseNotes READ releaseNotes NOTIFY releaseNotesChanged)
    Q_PROPERTY(QString latestVersionUrl READ latestVersionUrl NOTIFY latestVersionUrlChanged)
public:
    enum Page { MainPage = 0, SettingsPage = 1, TwitchPage = 2 };

    // Either service may be null while it is not available on this system;
    // its part of the settings section is then kept as it was read.
    ApplicationStore(std::shared_ptr<Bureau::Dispatcher> dispatcher,
                     std::shared_ptr<IKeyboardShortcutManager> shortcuts,
                     std::shared_ptr<IUpdateService> updates, QObject *parent = nullptr);
    ~ApplicationStore() override;

    bool mirrorPreview() const { return m_mirrorPreview; }
    bool showOnboarding() const { return m_showOnboarding; }
    bool automaticUpdatesEnabled() const { return m_automaticUpdatesEnabled; }
    bool alwaysShowGlintcode() const { return m_alwaysShowGlintcode; }
    bool usageStatisticsEnabled() const { return m_usageStatisticsEnabled; }
    QString toggleLensShortcut() const;
    QString showHideGlintCodeShortcut() const;
    QString externalTriggerShortcut() const;
    QString tapShortcut() const;
    // Whether hotkeys work while other programs have the focus.
    bool shortcutsAvailable() const;
    QString shortcutsUnavailableReason() const;
    int currentPage() const { return m_currentPage; }
    QString currentVersion() const;
    QString latestVersion() const { return m_latestVersion; }
    QString releaseNotes() const { return m_releaseNotes; }
    QString latestVersionUrl() const { return m_latestVersionUrl; }

    nlohmann::json saveSettings() const override;
    void loadSettings(const nlohmann::json &section) override;

    Q_INVOKABLE QString getLensShortcut(const QString &lensId) const;
    Q_INVOKABLE QVariantList getCacheOptions() const;
    Q_INVOKABLE bool isShortcutAvailible(const QString &sequence) const;
    // Why a bound sequence does not work system-wide; empty when it does.
    Q_INVOKABLE QString shortcutProblem(const QString &sequence) const;
    Q_INVOKABLE void setShowOnboarding(bool show);

public slots:
    void process(std::shared_ptr<Bureau::Action> action) override;
    void start() override;

    void setMirrorPreview(bool mirror);
    void setAlwaysShowGlintcode(bool alwaysShowGlintcode);
    void setAutomaticUpdates(bool value);
    void setUsageStatisticsEnabled(bool value);
    void setShortcut(VCam::ShortcutRole role, const QKeySequence &sequence);
    void removeShortcut(VCam::ShortcutRole role);
    void setLensShortcut(const VCam::LensId &lensId, const QKeySequence &sequence);
    void removeLensShortcut(const VCam::LensId &lensId);
    void setCurrentPage(int page);
    void setLatestVersion(const QString &version);
    void setReleaseNotes(const QString &notes);
    void setLatestVersionUrl(const QUrl &url);
    void onShortcutActivated(VCam::ShortcutRole role);
    void onLensShortcutActivated(const VCam::LensId &lensId);
    void onShortcutTakenOver(const QString &sequence, const QString &previousOwner);
    void onLatestVersionAvailable(const QString &version, const QString &notes);
    void onLatestVersionUrlAvailable(const QUrl &url);
    void showPopupMessage(const VCam::PopupMessage &message);

signals:
    void mirrorPreviewChanged();
    void showOnboardingChanged();
    void automaticUpdatesEnabledChanged();
    void alwaysShowGlintcodeChanged();
    void usageStatisticsEnabledChanged();
    void shortcutChanged();
    void currentPageChanged();
    void latestVersionChanged();
    void releaseNotesChanged();
    void latestVersionUrlChanged();
    void latestVersionAvailable();
    void showWarningPopup(const QString &message);
    void showInfoPopup(const QString &message);
    void showSuccessPopup(const QString &message);
    void shortcutTriggered();

private:
    void dispatch(ActionType type, QVariant payload = {});
    void setFlag(bool &flag, bool value, void (ApplicationStore::*changed)());
    QString roleShortcutText(ShortcutRole role) const;
    void crashOnPurpose();

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    std::shared_ptr<IKeyboardShortcutManager> m_shortcuts;
    std::shared_ptr<IUpdateService> m_updates;
    bool m_mirrorPreview = true;
    bool m_alwaysShowGlintcode = true;
    bool m_showOnboarding = true;
    bool m_automaticUpdatesEnabled = true;
    bool m_usageStatisticsEnabled = true;
    int m_currentPage = MainPage;
    QString m_latestVersion;
    QString m_releaseNotes;
    QString m_latestVersionUrl;
    // Kept verbatim while the service that owns them is not available.
    nlohmann::json m_unownedShortcuts = nlohmann::json::object();
    nlohmann::json m_unownedSkipVersion;
};

} // namespace VCam
