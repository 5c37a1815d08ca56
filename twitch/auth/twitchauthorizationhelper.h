#pragma once

#include <QObject>
#include <QTimer>
#include <QUrl>
#include <actiontypes.h>

namespace VCam {

class HttpServer;
class KeychainComponent;
class OAuthTokens;
class TwitchAuthClient;

// Links the user's Twitch account with the OAuth authorization-code flow:
// opens the browser on Twitch's authorize page, receives the code on the
// local redirect server, has the backend exchange it and keeps the tokens in
// the credential store. Owns the redirect server and the two wait timers.
class TwitchAuthorizationHelper : public QObject
{
    Q_OBJECT
public:
    static constexpr int kCodeWaitMs = 300000;
    static constexpr int kTokenWaitMs = 10000;

    TwitchAuthorizationHelper(TwitchAuthClient *backend, KeychainComponent *keychain,
                              QObject *parent = nullptr);

    TwitchAuthState state() const { return m_state; }
    HttpServer *server() const { return m_server; }
    // Twitch's authorize page with our client id, redirect and scopes.
    QUrl authorizeUrl() const;
    // Five minutes is too long for a test to sit through.
    void setCodeWaitInterval(int ms) { m_codeWaitMs = ms; }

public slots:
    void authorize();
    void deauthorize();
    // Gives up a sign-in that has not finished: the redirect server closes
    // and the state becomes NotAuthorized.
    void cancel();
    void setExtensionStatus(VCam::TwitchExtensionStatus status);

signals:
    void authorized(const QString &token);
    void deauthorized();
    void userIdReceived(const QString &userId);
    void stateChanged(VCam::TwitchAuthState state);

private:
    void setState(TwitchAuthState state);
    void onAccessCodeReceived(const QString &code);
    void onTokensReceived(const OAuthTokens &tokens);
    void onAuthorizationLost();
    void onCodeWaitTimeout();
    void onTokenWaitTimeout();

    TwitchAuthClient *m_backend;
    KeychainComponent *m_keychain;
    HttpServer *m_server;
    QTimer m_codeWaitTimer;
    QTimer m_tokenWaitTimer;
    TwitchAuthState m_state = TwitchAuthState::Unknown;
    int m_codeWaitMs = kCodeWaitMs;
};

} // namespace VCam
