#pragma once

#include "twitchuser.h"

#include <QLoggingCategory>
#include <QObject>
#include <actiontypes.h>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchService)

namespace VCam {

class KeychainComponent;
class NetworkManager;
class TwitchAuthClient;
class TwitchAuthorizationHelper;

// Joins the Twitch helpers into one service and re-emits their results: the
// account link (authorization, tokens, user record). Live events and the
// extension check plug in beside the authorization helper.
class TwitchService : public QObject
{
    Q_OBJECT
public:
    TwitchService(NetworkManager *network, KeychainComponent *keychain, QObject *parent = nullptr);

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

public slots:
    // The extension check's result, also shown on the browser's result page.
    void onExtensionStatusReceived(VCam::TwitchExtensionStatus status);

signals:
    void authorized();
    void deauthorized();
    void authStateChanged(VCam::TwitchAuthState state);
    void extensionStatusReceived(VCam::TwitchExtensionStatus status);
    void userInfoReceived(const VCam::TwitchUser &user);
    void tokensRememberedChanged(bool remembered);

private:
    void requestUser(const QString &userId);

    NetworkManager *m_network;
    KeychainComponent *m_keychain;
    TwitchAuthClient *m_authClient;
    TwitchAuthorizationHelper *m_authorization;
};

} // namespace VCam
