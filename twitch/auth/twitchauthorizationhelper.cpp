#include "twitchauthorizationhelper.h"

#include "httpserver.h"
#include "keychaincomponent.h"
#include "oauthtokens.h"
#include "twitchauthclient.h"

#include <QDesktopServices>
#include <networkmanager.h>

namespace VCam {

TwitchAuthorizationHelper::TwitchAuthorizationHelper(TwitchAuthClient *backend, KeychainComponent *keychain,
                                                     QObject *parent)
    : QObject(parent), m_backend(backend), m_keychain(keychain),
      m_server(new HttpServer(WebResources(), this))
{
    m_codeWaitTimer.setSingleShot(true);
    m_tokenWaitTimer.setSingleShot(true);
    connect(m_backend, &TwitchAuthClient::authorized, m_keychain, &KeychainComponent::store);
    connect(m_backend, &TwitchAuthClient::authorized, this, &TwitchAuthorizationHelper::onTokensReceived);
    connect(m_backend, &TwitchAuthClient::authorizationLost, this,
            &TwitchAuthorizationHelper::onAuthorizationLost);
    connect(m_backend, &TwitchAuthClient::twitchUserIdReceived, this,
            &TwitchAuthorizationHelper::userIdReceived);
    connect(m_keychain, &KeychainComponent::tokensLoaded, m_backend, &TwitchAuthClient::installTokens);
    connect(m_server, &HttpServer::accessCodeReceived, this,
            &TwitchAuthorizationHelper::onAccessCodeReceived);
    connect(&m_codeWaitTimer, &QTimer::timeout, this, &TwitchAuthorizationHelper::onCodeWaitTimeout);
    connect(&m_tokenWaitTimer, &QTimer::timeout, this, &TwitchAuthorizationHelper::onTokenWaitTimeout);
}

QUrl TwitchAuthorizationHelper::authorizeUrl() const
{
    return m_backend->network()->getAuthorizationUrl();
}

void TwitchAuthorizationHelper::authorize()
{
    const TwitchAuthState before = m_state;
    setState(TwitchAuthState::WaitingAccessCode);
    m_codeWaitTimer.start(m_codeWaitMs);
    if (!m_server->startListen()) {
        // Another program holds the port: Twitch could not reach us, so the
        // browser is not sent there.
        m_codeWaitTimer.stop();
        setState(before);
        return;
    }
    QDesktopServices::openUrl(authorizeUrl());
}

void TwitchAuthorizationHelper::deauthorize()
{
    if (!m_backend->hasTokens()) {
        // Nothing is linked in this run; a stale stored record still goes.
        m_keychain->remove();
        return;
    }
    m_backend->revoke();
}

void TwitchAuthorizationHelper::cancel()
{
    if (m_state != TwitchAuthState::WaitingAccessCode && m_state != TwitchAuthState::WaitingAccessToken)
        return;
    m_codeWaitTimer.stop();
    m_tokenWaitTimer.stop();
    m_server->abort();
    setState(TwitchAuthState::NotAuthorized);
}

void TwitchAuthorizationHelper::setExtensionStatus(TwitchExtensionStatus status)
{
    m_server->setExtensionStatus(static_cast<int>(status));
}

void TwitchAuthorizationHelper::setState(TwitchAuthState state)
{
    if (m_state == state)
        return;
    m_state = state;
    emit stateChanged(state);
}

void TwitchAuthorizationHelper::onAccessCodeReceived(const QString &code)
{
    setState(TwitchAuthState::WaitingAccessToken);
    m_backend->exchangeCode(code);
    m_tokenWaitTimer.start(kTokenWaitMs);
}

void TwitchAuthorizationHelper::onTokensReceived(const OAuthTokens &tokens)
{
    setState(TwitchAuthState::Authorized);
    m_tokenWaitTimer.stop();
    m_server->setAuthorizationResult(true);
    emit authorized(tokens.accessToken);
}

void TwitchAuthorizationHelper::onAuthorizationLost()
{
    setState(TwitchAuthState::NotAuthorized);
    m_tokenWaitTimer.stop();
    m_server->setAuthorizationResult(false);
    m_keychain->remove();
    emit deauthorized();
}

void TwitchAuthorizationHelper::onCodeWaitTimeout()
{
    m_codeWaitTimer.stop();
    m_server->abort();
}

void TwitchAuthorizationHelper::onTokenWaitTimeout()
{
    m_tokenWaitTimer.stop();
    m_server->setAuthorizationResult(false);
}

} // namespace VCam
