#pragma once

#include "twitchuser.h"

#include <QLoggingCategory>
#include <QTimer>
#include <actiontypes.h>
#include <bitsevent.h>
#include <lensid.h>
#include <memory>
#include <store.h>
#include <streamstate.h>
#include <subscribeevent.h>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchStore)

namespace Bureau {
class Dispatcher;
}

namespace VCam {

class LensInfo;
class TwitchService;

// The store of the "twitch" section: what the Twitch page shows about the
// linked account and its channel, and the reactions to the channel's live
// events. A subscription can switch on a subscription lens, chosen by tier,
// for a while; the lens that was on before comes back afterwards. Events
// that switch no lens go to the running lens as external events.
class TwitchStore : public Store
{
    Q_OBJECT
    Q_PROPERTY(int oauthState READ oauthState NOTIFY authStateChanged)
    Q_PROPERTY(bool authorized READ authorized NOTIFY authStateChanged)
    Q_PROPERTY(
        bool twitchExtensionInstalled READ twitchExtensionInstalled NOTIFY twitchExtensionInstalledChanged)
    Q_PROPERTY(bool isPartnerAccount READ isPartnerAccount NOTIFY userInfoChanged)
    Q_PROPERTY(int extensionStatus READ extensionStatus NOTIFY extensionStatusChanged)
    Q_PROPERTY(bool isSubscriptionReactionEnabled READ isSubscriptionReactionEnabled NOTIFY
                   changeLensOnSubscriptionChanged)
    Q_PROPERTY(bool isIndependentOnSubscriptionTier READ isIndependentOnSubscriptionTier NOTIFY
                   independOnSubscriptionTierChanged)
    Q_PROPERTY(bool isSubcriptionReactionForResubscribeEnabled READ isSubcriptionReactionForResubscribeEnabled
                   NOTIFY subcriptionReactionForResubscribeEnabledChanged)
    Q_PROPERTY(QString secondaryLensId READ secondaryLensId NOTIFY secondaryLensIdChanged)
    Q_PROPERTY(QString secondaryLensIdTier1 READ secondaryLensIdTier1 NOTIFY secondaryLensIdChanged)
    Q_PROPERTY(QString secondaryLensIdTier2 READ secondaryLensIdTier2 NOTIFY secondaryLensIdChanged)
    Q_PROPERTY(QString secondaryLensIdTier3 READ secondaryLensIdTier3 NOTIFY secondaryLensIdChanged)
    Q_PROPERTY(bool isThanksEnabled READ isThanksEnabled NOTIFY subscriptionThankChanged)
    Q_PROPERTY(int secondaryLensTimeout READ secondaryLensTimeout NOTIFY secondaryLensTimeoutChanged)
    Q_PROPERTY(QString currentUserName READ currentUserName NOTIFY userInfoChanged)
    Q_PROPERTY(bool tokensRemembered READ tokensRemembered NOTIFY tokensRememberedChanged)
    Q_PROPERTY(bool streamLive READ streamLive NOTIFY streamStateChanged)
    Q_PROPERTY(qint64 viewerCount READ viewerCount NOTIFY streamStateChanged)
    Q_PROPERTY(QString extensionUrl READ extensionUrl CONSTANT)
    Q_PROPERTY(QString liveEventsWarning READ liveEventsWarning NOTIFY liveEventsWarningChanged)
public:
    static constexpr int kDefaultLensTimeoutMs = 30000;
    static constexpr int kMaxLensTimeoutMs = 3600000;

    TwitchStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, std::shared_ptr<TwitchService> service,
                QObject *parent = nullptr);

    int oauthState() const;
    bool authorized() const;
    bool twitchExtensionInstalled() const { return m_extensionStatus != TwitchExtensionStatus::NotInstalled; }
    bool isPartnerAccount() const { return m_user.isPartner(); }
    int extensionStatus() const { return static_cast<int>(m_extensionStatus); }
    bool isSubscriptionReactionEnabled() const { return m_reactionEnabled; }
    bool isIndependentOnSubscriptionTier() const { return m_independentOnTier; }
    bool isSubcriptionReactionForResubscribeEnabled() const { return m_resubscribeEnabled; }
    QString secondaryLensId() const { return m_lensIds[0]; }
    QString secondaryLensIdTier1() const { return m_lensIds[1]; }
    QString secondaryLensIdTier2() const { return m_lensIds[2]; }
    QString secondaryLensIdTier3() const { return m_lensIds[3]; }
    bool isThanksEnabled() const { return m_thanksEnabled; }
    int secondaryLensTimeout() const { return m_lensTimeoutMs; }
    QString currentUserName() const { return m_user.displayName; }
    bool tokensRemembered() const;
    bool streamLive() const { return m_streamState.live; }
    qint64 viewerCount() const { return m_streamState.viewerCount; }
    QString extensionUrl() const;
    QString liveEventsWarning() const { return m_liveEventsWarning; }

    TwitchService *service() const { return m_service.get(); }
    bool subscriptionLensActive() const { return m_subscriptionLensActive; }
    LensId mainLensId() const { return m_mainLensId; }
    QTimer *deactivationTimer() { return &m_deactivationTimer; }

    nlohmann::json saveSettings() const override;
    void loadSettings(const nlohmann::json &section) override;

public slots:
    void process(std::shared_ptr<Bureau::Action> action) override;
    void start() override;

signals:
    void authStateChanged();
    void twitchExtensionInstalledChanged();
    void changeLensOnSubscriptionChanged();
    void independOnSubscriptionTierChanged();
    void subcriptionReactionForResubscribeEnabledChanged();
    void secondaryLensTimeoutChanged();
    void secondaryLensIdChanged();
    void extensionStatusChanged();
    void subscriptionThankChanged();
    void userInfoChanged();
    void tokensRememberedChanged();
    void streamStateChanged();
    void liveEventsWarningChanged();

private:
    void onAuthStateChanged(TwitchAuthState state);
    void onUserInfoReceived(const TwitchUser &user);
    void onExtensionStatusReceived(TwitchExtensionStatus status);
    void onSubscription(const SubscribeEvent &event);
    void onBits(const BitsEvent &event);
    void onRevoked(const QString &type, const QString &status);
    void onActiveLensChanged(const LensInfo &lens);
    void onDeactivationTimeout();
    void emulateSubscription();
    LensRole roleFor(const QString &plan) const;
    void endSubscriptionLens();
    void setFlag(bool &flag, const QVariant &value, void (TwitchStore::*changed)());
    void setTimeout(int ms);
    void dispatch(ActionType type, QVariant payload = {});
    void dispatchExternalEvent(const char *name, const QJsonObject &payload);

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    std::shared_ptr<TwitchService> m_service;
    TwitchUser m_user;
    bool m_cancelling = false;
    TwitchExtensionStatus m_extensionStatus = TwitchExtensionStatus::NotInstalled;
    StreamState m_streamState;
    QString m_liveEventsWarning;

    // Reaction settings.
    bool m_reactionEnabled = true;
    bool m_independentOnTier = false;
    bool m_resubscribeEnabled = true;
    bool m_thanksEnabled = true;
    int m_lensTimeoutMs = kDefaultLensTimeoutMs;
    LensId m_lensIds[4]; // by LensRole

    // Reaction state.
    LensId m_mainLensId;
    bool m_subscriptionLensActive = false;
    LensId m_subscriptionLensId;
    QTimer m_deactivationTimer;
};

} // namespace VCam
