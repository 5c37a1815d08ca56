#include "twitchauthclient.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <networkmanager.h>
#include <realtimer.h>

Q_LOGGING_CATEGORY(lcTwitchAuth, "glint.twitch.auth")

namespace VCam {

TwitchAuthClient::TwitchAuthClient(NetworkManager *network, QObject *parent)
    : QObject(parent), m_network(network), m_checkTimer(new RealTimer(this))
{
    connect(m_checkTimer, &RealTimer::timeout, this, &TwitchAuthClient::onCheck);
    // A refresh the backend refused, or a finished revocation.
    connect(m_network, &NetworkManager::authorizationLost, this, &TwitchAuthClient::lose);
    connect(m_network, &NetworkManager::twitchUserIdReceived, this,
            [this](const QString &, const QString &userId) {
                if (!userId.isEmpty())
                    emit twitchUserIdReceived(userId);
            });
}

int TwitchAuthClient::msUntilCheck() const
{
    return m_checkTimer->isActive() ? m_checkTimer->remainingTime() : -1;
}

void TwitchAuthClient::exchangeCode(const QString &code)
{
    m_network->exchangeTwitchCode(
        code, kRedirectUri, [this](int status, const QByteArray &body, const QString &failure) {
            if (!failure.isEmpty() || status / 100 != 2) {
                qCWarning(lcTwitchAuth).noquote() << "Twitch code exchange failed:" << status << failure;
                lose();
                return;
            }
            accept(body);
        });
}

void TwitchAuthClient::installTokens(const OAuthTokens &tokens)
{
    m_tokens = tokens;
    m_network->setAccessToken(tokens.accessToken);
    if (m_tokens.needsRefresh() || m_tokens.accessToken.isEmpty()) {
        refresh();
        return;
    }
    emit authorized(m_tokens);
    scheduleCheck();
    m_network->requestTwitchUserId();
}

void TwitchAuthClient::refresh()
{
    if (m_tokens.refreshToken.isEmpty()) {
        lose();
        return;
    }
    m_refreshing = true;
    // Failures reach us as the network manager's authorizationLost; an
    // answer that never comes (rate limit) is retried by the check timer.
    m_checkTimer->start(kRetryMs);
    m_network->refreshTwitchToken(m_tokens.refreshToken,
                                  [this](int, const QByteArray &body, const QString &) {
                                      m_refreshing = false;
                                      accept(body);
                                  });
}

void TwitchAuthClient::revoke()
{
    if (m_tokens.isEmpty() && m_network->accessToken().isEmpty())
        return; // nothing to revoke, nothing to lose
    m_network->revokeTwitchToken({});
}

void TwitchAuthClient::accept(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    OAuthTokens tokens = m_tokens;
    if (!document.isObject() || !tokens.fromJson(document.object()) || tokens.accessToken.isEmpty()) {
        qCWarning(lcTwitchAuth) << "The backend's token answer is not a token record";
        lose();
        return;
    }
    m_tokens = tokens;
    m_network->setAccessToken(m_tokens.accessToken);
    scheduleCheck();
    emit authorized(m_tokens);
    m_network->requestTwitchUserId();
}

void TwitchAuthClient::lose()
{
    m_refreshing = false;
    m_checkTimer->stop();
    m_tokens.clear();
    m_network->setAccessToken(QString());
    emit authorizationLost();
}

void TwitchAuthClient::scheduleCheck()
{
    if (m_tokens.refreshToken.isEmpty()) {
        m_checkTimer->stop();
        return;
    }
    const qint64 dueSecs =
        m_tokens.expiresAt - OAuthTokens::kRefreshMarginSecs - QDateTime::currentSecsSinceEpoch();
    m_checkTimer->start(qBound<qint64>(0, dueSecs * 1000 + 1000, kMaxCheckIntervalMs));
}

void TwitchAuthClient::onCheck()
{
    m_checkTimer->stop();
    if (m_tokens.isEmpty())
        return;
    if (m_tokens.needsRefresh())
        refresh();
    else
        scheduleCheck();
}

} // namespace VCam
