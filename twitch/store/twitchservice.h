#pragma once

#include "twitchuser.h"

#include <QLoggingCategory>
#include <QObject>
#include <actiontypes.h>
#include <bitsevent.h>
#include <nlohmann/json.hpp>
#include <streamstate.h>
#include <subscribeevent.h>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchService)

namespace VCam {

class KeychainComponent;
class NetworkManager;
class TwitchAuthClient;
class TwitchAuthorizationHelper;
class TwitchEventSubHelper;
class TwitchExtensionsHelper;
class TwitchStreamStateHelper;
class TwitchSubscriptionHelper;

// Joins the Twitch helpers into one service and re-emits their results: the
// account link (authorization, tokens, user record), the live events of the
// channel (EventSub by default, PubSub where a server still speaks it), the
// extension check and the stream state.
class TwitchService : public QObject
{
    Q_OBJECT
public:
    // Which protocol brings the channel's live events.
    enum class LiveEvents { EventSub = 0, PubSub = 1 };

    TwitchService(NetworkManager *network, KeychainComponent *keychain, QObject *parent = nullptr);

    // Chosen before start(); EventSub unless told otherwise.
    void setLiveEvents(LiveEvents protocol);
    LiveEvents liveEvents() const { return m_liveEvents; }
    void sendLensUpdate(const nlohmann::json &lens, bool subscribeEnabled);
    void sendSubscription(const QJsonObject &subscribe, bool subscribeEnabled);

    // Reads the stored tokens; a stored login comes back as authorized().
    void start();
    void authorize();
    void deauthorize();
    void cancelAuthorization();
    TwitchAuthState authState() const;
    // False once the credential store failed: the login lasts this run only.
    bool tokensRemembered() const;

    TwitchAuthorizationHelper *authorization() const { return m_authorization; }
    TwitchAuthClient *authClient() const { return m_authClient; }
    TwitchEventSubHelper *eventSub() const { return m_eventSub; }
    TwitchSubscriptionHelper *pubSub() const { return m_pubSub; }
    TwitchExtensionsHelper *extensions() const { return m_extensions; }
    TwitchStreamStateHelper *streamState() const { return m_streamState; }

public slots:
    // The extension check's result, also shown on the browser's result page.
    void onExtensionStatusReceived(VCam::TwitchExtensionStatus status);

signals:
    void authorized();
    void deauthorized();
    void authStateChanged(VCam::TwitchAuthState state);
    void extensionStatusReceived(VCam::TwitchExtensionStatus status);
    void userInfoReceived(const VCam::TwitchUser &user);
    void subscriptionReceived(const VCam::SubscribeEvent &event);
    void bitsReceived(const VCam::BitsEvent &event);
    void streamStateReceived(const VCam::StreamState &streamState);
    void subscriptionRevoked(const QString &type, const QString &status);
    void tokensRememberedChanged(bool remembered);

private:
    void requestUser(const QString &userId);
    void onAuthorized(const QString &token);
    void onUserIdReceived(const QString &userId);
    void onDeauthorized();

    NetworkManager *m_network;
    KeychainComponent *m_keychain;
    TwitchAuthClient *m_authClient;
    TwitchAuthorizationHelper *m_authorization;
    TwitchEventSubHelper *m_eventSub;
    TwitchSubscriptionHelper *m_pubSub;
    TwitchExtensionsHelper *m_extensions;
    TwitchStreamStateHelper *m_streamState;
    LiveEvents m_liveEvents = LiveEvents::EventSub;
};

} // namespace VCam
