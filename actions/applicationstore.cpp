#include "applicationstore.h"

#include "globalshortcut.h"
#include "ikeyboardshortcutmanager.h"
#include "iupdateservice.h"
#include "lenscommand.h"
#include "lensshortcut.h"
#include "settingsvalue.h"

#include <QLoggingCategory>
#include <dispatcher.h>
#include <glintdeployment.h>

Q_LOGGING_CATEGORY(lcAppStore, "glint.settings")

namespace VCam {

namespace {
const char *const kShortcuts = "shortcuts";
const char *const kSkipVersion = "skip_version";
const char *const kMirrorPreview = "mirror_preview";
const char *const kAlwaysShowGlintcode = "always_show_glintcode";
const char *const kAutomaticUpdates = "automatic_updates";
const char *const kShowOnboarding = "show_onboarding";
const char *const kUsageStatistics = "send_usage_statistics";
} // namespace

ApplicationStore::ApplicationStore(std::shared_ptr<Bureau::Dispatcher> dispatcher,
                                   std::shared_ptr<IKeyboardShortcutManager> shortcuts,
                                   std::shared_ptr<IUpdateService> updates, QObject *parent)
    : Store(parent), m_dispatcher(std::move(dispatcher)), m_shortcuts(std::move(shortcuts)),
      m_updates(std::move(updates))
{
    if (m_shortcuts) {
        connect(m_shortcuts.get(), &IKeyboardShortcutManager::shortcutActivated, this,
                &ApplicationStore::onShortcutActivated);
        connect(m_shortcuts.get(), &IKeyboardShortcutManager::lensShortcutActivated, this,
                &ApplicationStore::onLensShortcutActivated);
        connect(m_shortcuts.get(), &IKeyboardShortcutManager::shortcutTakenOver, this,
                &ApplicationStore::onShortcutTakenOver);
    }
    if (m_updates) {
        connect(m_updates.get(), &IUpdateService::latestVersionAvailable, this,
                &ApplicationStore::onLatestVersionAvailable);
        connect(m_updates.get(), &IUpdateService::latestVersionUrlAvailable, this,
                &ApplicationStore::onLatestVersionUrlAvailable);
    }
}

ApplicationStore::~ApplicationStore() = default;

void ApplicationStore::start()
{
    if (!m_updates) {
        emit started();
        return;
    }
    connect(m_updates.get(), &IUpdateService::started, this, &ApplicationStore::started,
            Qt::UniqueConnection);
    m_updates->start();
}

void ApplicationStore::dispatch(ActionType type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(static_cast<qint32>(type), std::move(payload)));
}

void ApplicationStore::process(std::shared_ptr<Bureau::Action> action)
{
    const QVariant &payload = action->payload;
    switch (static_cast<ActionType>(action->type)) {
    case ActionType::Started:
        if (m_updates && m_automaticUpdatesEnabled)
            m_updates->checkForUpdates(false);
        // The camera store draws the code image only when told to; tell it
        // what the saved preference says.
        dispatch(ActionType::SetAlwaysShowGlintcode, m_alwaysShowGlintcode);
        break;
    case ActionType::SetLensFavorite: {
        const auto command = payload.value<LensCommand>();
        if (!command.enabled)
            removeLensShortcut(command.lensId);
        break;
    }
    case ActionType::TakeDownLens:
        removeLensShortcut(payload.canConvert<LensCommand>() ? payload.value<LensCommand>().lensId
                                                             : payload.toString());
        break;
    case ActionType::OpenSettingsPage:
        setCurrentPage(SettingsPage);
        break;
    case ActionType::OpenTwitchPage:
        setCurrentPage(TwitchPage);
        break;
    case ActionType::OpenMainPage:
        setCurrentPage(MainPage);
        break;
    case ActionType::ShowPopupMessage:
        showPopupMessage(payload.value<PopupMessage>());
        break;
    case ActionType::SetMirrorPreview:
        setMirrorPreview(payload.toBool());
        break;
    case ActionType::SetAlwaysShowGlintcode:
        setAlwaysShowGlintcode(payload.toBool());
        break;
    case ActionType::SetAutomaticUpdatesEnabled:
        setAutomaticUpdates(payload.toBool());
        break;
    case ActionType::SetUsageStatisticsEnabled:
        setUsageStatisticsEnabled(payload.toBool());
        break;
    case ActionType::SetGlobalShortcut: {
        const auto shortcut = payload.value<GlobalShortcut>();
        setShortcut(shortcut.role, shortcut.sequence);
        break;
    }
    case ActionType::SetLensShortcut: {
        const auto shortcut = payload.value<LensShortcut>();
        setLensShortcut(shortcut.lensId, shortcut.sequence);
        break;
    }
    case ActionType::CheckForUpdates:
        if (m_updates)
            m_updates->checkForUpdates(true);
        break;
    case ActionType::SkipUpdate:
        if (m_updates)
            m_updates->skipVersionText(payload.toString());
        break;
    default:
        break;
    }
}

void ApplicationStore::loadSettings(const nlohmann::json &section)
{
    const bool isObject = section.is_object();
    const auto member = [&](const char *key) {
        return isObject && section.contains(key) ? section.at(key) : nlohmann::json();
    };
    nlohmann::json shortcuts = member(kShortcuts);
    if (!shortcuts.is_object())
        shortcuts = nlohmann::json::object();
    if (m_shortcuts)
        m_shortcuts->loadSettings(shortcuts);
    else
        m_unownedShortcuts = shortcuts;
    if (m_updates)
        m_updates->setSkipVersion(member(kSkipVersion));
    else
        m_unownedSkipVersion = member(kSkipVersion);

    setFlag(m_mirrorPreview, settingsBool(section, kMirrorPreview, true),
            &ApplicationStore::mirrorPreviewChanged);
    setFlag(m_alwaysShowGlintcode, settingsBool(section, kAlwaysShowGlintcode, true),
            &ApplicationStore::alwaysShowGlintcodeChanged);
    setFlag(m_automaticUpdatesEnabled, settingsBool(section, kAutomaticUpdates, true),
            &ApplicationStore::automaticUpdatesEnabledChanged);
    setFlag(m_showOnboarding, settingsBool(section, kShowOnboarding, true),
            &ApplicationStore::showOnboardingChanged);
    setFlag(m_usageStatisticsEnabled, settingsBool(section, kUsageStatistics, true),
            &ApplicationStore::usageStatisticsEnabledChanged);
    emit shortcutChanged();
}

nlohmann::json ApplicationStore::saveSettings() const
{
    nlohmann::json section = nlohmann::json::object();
    section[kShortcuts] = m_shortcuts ? m_shortcuts->saveSettings() : m_unownedShortcuts;
    const nlohmann::json skip = m_updates ? m_updates->skipVersion() : m_unownedSkipVersion;
    if (!skip.is_null())
        section[kSkipVersion] = skip;
    section[kMirrorPreview] = m_mirrorPreview;
    section[kAlwaysShowGlintcode] = m_alwaysShowGlintcode;
    section[kAutomaticUpdates] = m_automaticUpdatesEnabled;
    section[kShowOnboarding] = m_showOnboarding;
    section[kUsageStatistics] = m_usageStatisticsEnabled;
    return section;
}

void ApplicationStore::setFlag(bool &flag, bool value, void (ApplicationStore::*changed)())
{
    if (flag == value)
        return;
    flag = value;
    emit(this->*changed)();
}

void ApplicationStore::setMirrorPreview(bool mirror)
{
    setFlag(m_mirrorPreview, mirror, &ApplicationStore::mirrorPreviewChanged);
}

void ApplicationStore::setAlwaysShowGlintcode(bool alwaysShowGlintcode)
{
    setFlag(m_alwaysShowGlintcode, alwaysShowGlintcode, &ApplicationStore::alwaysShowGlintcodeChanged);
}

void ApplicationStore::setAutomaticUpdates(bool value)
{
    setFlag(m_automaticUpdatesEnabled, value, &ApplicationStore::automaticUpdatesEnabledChanged);
}

void ApplicationStore::setUsageStatisticsEnabled(bool value)
{
    setFlag(m_usageStatisticsEnabled, value, &ApplicationStore::usageStatisticsEnabledChanged);
}

void ApplicationStore::setShowOnboarding(bool show)
{
    setFlag(m_showOnboarding, show, &ApplicationStore::showOnboardingChanged);
}

void ApplicationStore::setShortcut(ShortcutRole role, const QKeySequence &sequence)
{
    if (!m_shortcuts) {
        qCWarning(lcAppStore) << "Global hotkeys are not available; shortcut not set for" << role;
        return;
    }
    m_shortcuts->setShortcut(role, sequence);
    emit shortcutChanged();
}

void ApplicationStore::removeShortcut(ShortcutRole role)
{
    if (!m_shortcuts)
        return;
    m_shortcuts->removeShortcut(role);
    emit shortcutChanged();
}

void ApplicationStore::setLensShortcut(const LensId &lensId, const QKeySequence &sequence)
{
    if (!m_shortcuts)
        return;
    m_shortcuts->setLensShortcut(lensId, sequence);
    emit shortcutChanged();
}

void ApplicationStore::removeLensShortcut(const LensId &lensId)
{
    if (!m_shortcuts || m_shortcuts->lensShortcut(lensId).isEmpty())
        return;
    m_shortcuts->removeLensShortcut(lensId);
    emit shortcutChanged();
}

void ApplicationStore::setCurrentPage(int page)
{
    if (m_currentPage == page)
        return;
    m_currentPage = page;
    emit currentPageChanged();
}

void ApplicationStore::setLatestVersion(const QString &version)
{
    if (m_latestVersion == version)
        return;
    m_latestVersion = version;
    emit latestVersionChanged();
}

void ApplicationStore::setReleaseNotes(const QString &notes)
{
    if (m_releaseNotes == notes)
        return;
    m_releaseNotes = notes;
    emit releaseNotesChanged();
}

void ApplicationStore::setLatestVersionUrl(const QUrl &url)
{
    const QString text = url.toString();
    if (m_latestVersionUrl == text)
        return;
    m_latestVersionUrl = text;
    emit latestVersionUrlChanged();
}

void ApplicationStore::onLatestVersionAvailable(const QString &version, const QString &notes)
{
    setLatestVersion(version);
    setReleaseNotes(notes);
    emit latestVersionAvailable();
}

void ApplicationStore::onLatestVersionUrlAvailable(const QUrl &url)
{
    setLatestVersionUrl(url);
}

void ApplicationStore::showPopupMessage(const PopupMessage &message)
{
    switch (message.type) {
    case MessageType::Warning:
        emit showWarningPopup(message.text);
        break;
    case MessageType::Info:
        emit showInfoPopup(message.text);
        break;
    case MessageType::Success:
        emit showSuccessPopup(message.text);
        break;
    }
}

void ApplicationStore::onShortcutActivated(ShortcutRole role)
{
    switch (role) {
    case ShortcutRole::Crash:
        qCInfo(lcAppStore) << "Crash shortcut activated!";
        crashOnPurpose();
        break;
    case ShortcutRole::ToggleLens:
        dispatch(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
        break;
    case ShortcutRole::ToggleGlintcode:
        dispatch(ActionType::ToggleGlintcode);
        break;
    case ShortcutRole::ExternalEvent:
        dispatch(ActionType::EmulateExternalEvent);
        break;
    case ShortcutRole::TapEvent:
        break;
    case ShortcutRole::EmulateSubscription:
        dispatch(ActionType::EmulateSubscribeEvent);
        break;
    }
    emit shortcutTriggered();
}

void ApplicationStore::onLensShortcutActivated(const LensId &lensId)
{
    LensCommand command;
    command.lensId = lensId;
    command.context = LensActionContext::Shortcut;
    dispatch(ActionType::SetActiveLensId, QVariant::fromValue(command));
}

void ApplicationStore::onShortcutTakenOver(const QString &sequence, const QString &previousOwner)
{
    emit showInfoPopup(
        tr("%1 was the hotkey of %2; it is now this one's, and %2 has none.").arg(sequence, previousOwner));
}

void ApplicationStore::crashOnPurpose()
{
    // Deliberate fault so that the crash reporter can be checked end to end.
    volatile int *nowhere = nullptr;
    *nowhere = 1;
}

QString ApplicationStore::roleShortcutText(ShortcutRole role) const
{
    return m_shortcuts ? m_shortcuts->shortcut(role).toString(QKeySequence::PortableText) : QString();
}

QString ApplicationStore::toggleLensShortcut() const
{
    return roleShortcutText(ShortcutRole::ToggleLens);
}
QString ApplicationStore::showHideGlintCodeShortcut() const
{
    return roleShortcutText(ShortcutRole::ToggleGlintcode);
}
QString ApplicationStore::externalTriggerShortcut() const
{
    return roleShortcutText(ShortcutRole::ExternalEvent);
}
QString ApplicationStore::tapShortcut() const
{
    return roleShortcutText(ShortcutRole::TapEvent);
}

QString ApplicationStore::currentVersion() const
{
    return m_updates ? m_updates->currentVersion() : QString::fromLatin1(glint::kVersion);
}

QString ApplicationStore::getLensShortcut(const QString &lensId) const
{
    return m_shortcuts ? m_shortcuts->lensShortcut(lensId).toString(QKeySequence::PortableText) : QString();
}

QVariantList ApplicationStore::getCacheOptions() const
{
    // Lens cache limits offered in the settings, in mebibytes.
    return {100, 200, 500, 1000, 2000, 5000};
}

bool ApplicationStore::shortcutsAvailable() const
{
    return m_shortcuts && m_shortcuts->isSystemWide();
}

QString ApplicationStore::shortcutsUnavailableReason() const
{
    return m_shortcuts ? m_shortcuts->unavailableReason() : tr("Hotkeys are not available in this build.");
}

QString ApplicationStore::shortcutProblem(const QString &sequence) const
{
    return m_shortcuts ? m_shortcuts->problem(QKeySequence::fromString(sequence, QKeySequence::PortableText))
                       : QString();
}

bool ApplicationStore::isShortcutAvailible(const QString &sequence) const
{
    return m_shortcuts &&
           m_shortcuts->isAvailable(QKeySequence::fromString(sequence, QKeySequence::PortableText));
}

} // namespace VCam
