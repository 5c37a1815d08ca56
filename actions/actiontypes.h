#pragma once

#include <QDebug>
#include <QObject>

// The vocabulary of the application: every enumeration here is exported to
// QML by key, so keys and values are part of the interface and stay stable.
namespace VCam {
Q_NAMESPACE

enum class ActionType : qint32 {
    Started = 0,
    SetChromakeyEnabled = 1,
    SetInputCamera = 2,
    SetActiveLensId = 3,
    SetLensFavorite = 4,
    SetSearchFilter = 5,
    ActiveLensChanged = 6,
    LensDownloaded = 7,
    ToggleLens = 8,
    ToggleGlintcode = 9,
    TakeDownLens = 10,
    OpenSettingsPage = 11,
    OpenTwitchPage = 12,
    OpenMainPage = 13,
    NotifyRecentsOpened = 14,
    NotifyRecentsClosed = 15,
    ShowPopupMessage = 16,
    NotifySearchOpened = 17,
    SetCacheLimit = 18,
    SetMirrorPreview = 19,
    SetAlwaysShowGlintcode = 20,
    SetAutomaticUpdatesEnabled = 21,
    SetCacheDir = 22,
    SetGlobalShortcut = 23,
    SetLensShortcut = 24,
    ClearCache = 25,
    ClearFavorites = 26,
    ClearRecents = 27,
    ClearAppIntegrations = 28,
    setTwitchSubscriptionReactionEnabled = 29,
    setTwitchSubscriptionReactionForResubscribeEnabled = 30,
    setTwitchSubscriptionReactionIndependentOnTier = 31,
    SetSecondaryLens = 32,
    SetTwitchSubscriberThankEnabled = 33,
    SetTwitchSecondaryLensTimeout = 34,
    SetCoreProcessingLens = 35,
    SetCoreProcessingOverlay = 36,
    SetCoreProcessingOverlayMirrored = 37,
    AddMyLens = 38,
    AddMyLensLink = 39,
    SaveGlintcode = 40,
    CopyLensLink = 41,
    ReportLens = 42,
    ChangeDiscoverFilter = 43,
    UpdateFrame = 44,
    AuthorizeTwitch = 45,
    DeauthorizeTwitch = 46,
    TwitchUserAuthorized = 47,
    TwitchUserDeauthorized = 48,
    GestureEvent = 49,
    ExternalEvent = 50,
    EmulateExternalEvent = 51,
    EmulateSubscribeEvent = 52,
    ShowLensHint = 53,
    HideLensHint = 54,
    SetMainLensHint = 55,
    CheckForUpdates = 56,
    SkipUpdate = 57,
    NotifyFavoriteLensesCounted = 58,
    NotifyStreamStateUpdated = 59,
    SetUsageStatisticsEnabled = 60,
    SetUpVirtualCamera = 61,
    SetBackgroundEffect = 62,
};
Q_ENUM_NS(ActionType)

// Which subscription lens a lens is assigned to.
enum class LensRole : qint32 { Independent = 0, Tier1 = 1, Tier2 = 2, Tier3 = 3 };
Q_ENUM_NS(LensRole)

// The application-wide hotkeys.
enum class ShortcutRole : qint32 {
    Crash = 0,
    ToggleLens = 1,
    ToggleGlintcode = 2,
    ExternalEvent = 3,
    TapEvent = 4,
    EmulateSubscription = 5,
};
Q_ENUM_NS(ShortcutRole)

enum class MessageType : qint32 { Warning = 0, Info = 1, Success = 2 };
Q_ENUM_NS(MessageType)

enum class LensReportType : qint32 { CopyrightInfringement = 0, InappropriateLens = 1 };
Q_ENUM_NS(LensReportType)

enum class TwitchAuthState : qint32 {
    Unknown = 0,
    NotAuthorized = 1,
    WaitingAccessCode = 2,
    WaitingAccessToken = 3,
    Authorized = 4,
};
Q_ENUM_NS(TwitchAuthState)

enum class TwitchExtensionStatus : qint32 { NotInstalled = 0, NotActivated = 1, Activated = 2 };
Q_ENUM_NS(TwitchExtensionStatus)

// What is done to the picture behind the person: nothing, a blur, or an image.
enum class BackgroundMode : qint32 { Off = 0, Blur = 1, Image = 2 };
Q_ENUM_NS(BackgroundMode)

enum class BlurStrength : qint32 { Light = 0, Strong = 1 };
Q_ENUM_NS(BlurStrength)

enum class GestureType : qint32 { None = 0, Tap = 1, TouchBegin = 2, TouchChange = 3, TouchEnd = 4 };
Q_ENUM_NS(GestureType)

QDebug operator<<(QDebug debug, GestureType type);

// The key text of an action type, e.g. "SetActiveLensId"; empty when unknown.
QByteArray actionTypeKey(qint32 type);

namespace ActionContext {
Q_NAMESPACE

// The place in the interface from which a lens action was made.
enum class LensActionContext : qint32 {
    None = 0,
    LensExplorer = 1,
    Featured = 2,
    Recents = 3,
    Search = 4,
    Favorites = 5,
    SearchLink = 6,
    Shortcut = 7,
};
Q_ENUM_NS(LensActionContext)

} // namespace ActionContext

using LensActionContext = ActionContext::LensActionContext;

} // namespace VCam
