#include "twitchservice.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>
#include <keychaincomponent.h>
#include <networkmanager.h>
#include <oauthtokens.h>
#include <twitchauthclient.h>
#include <twitchauthorizationhelper.h>

Q_LOGGING_CATEGORY(lcTwitchService, "glint.twitch.service")

namespace VCam {

TwitchService::TwitchService(NetworkManager *network, KeychainComponent *keychain, QObject *parent)
    : QObject(parent), m_network(network), m_keychain(keychain),
      m_authClient(new TwitchAuthClient(network, this)),
      m_authorization(new TwitchAuthorizationHelper(m_authClient, keychain, this))
{
    qRegisterMetaType<OAuthTokens>("VCam::OAuthTokens");
    qRegisterMetaType<TwitchUser>("VCam::TwitchUser");
    connect(m_authorization, &TwitchAuthorizationHelper::authorized, this, [this] { emit authorized(); });
    connect(m_authorization, &TwitchAuthorizationHelper::deauthorized, this, &TwitchService::deauthorized);
    connect(m_authorization, &TwitchAuthorizationHelper::stateChanged, this,
            &TwitchService::authStateChanged);
    connect(m_authorization, &TwitchAuthorizationHelper::userIdReceived, this, &TwitchService::requestUser);
    connect(m_keychain, &KeychainComponent::persistentChanged, this, &TwitchService::tokensRememberedChanged);
}

void TwitchService::start()
{
    m_keychain->load();
}

void TwitchService::authorize()
{
    m_authorization->authorize();
}

void TwitchService::deauthorize()
{
    m_authorization->deauthorize();
}

void TwitchService::cancelAuthorization()
{
    m_authorization->cancel();
}

TwitchAuthState TwitchService::authState() const
{
    return m_authorization->state();
}

bool TwitchService::tokensRemembered() const
{
    return m_keychain->isPersistent();
}

void TwitchService::onExtensionStatusReceived(TwitchExtensionStatus status)
{
    m_authorization->setExtensionStatus(status);
    emit extensionStatusReceived(status);
}

void TwitchService::requestUser(const QString &userId)
{
    const QString path =
        QStringLiteral("users?id=%1").arg(QString::fromLatin1(QUrl::toPercentEncoding(userId)));
    m_network->requestHelix(path, [this](int status, const QByteArray &body, const QString &failure) {
        const QJsonDocument document = QJsonDocument::fromJson(body);
        const QJsonArray data = document.object().value(QLatin1String("data")).toArray();
        if (!failure.isEmpty() || status / 100 != 2 || data.isEmpty() || !data.first().isObject()) {
            qCWarning(lcTwitchService).noquote()
                << QStringLiteral("Can't get twitch user info: %1")
                       .arg(failure.isEmpty() ? QStringLiteral("status %1").arg(status) : failure);
            return;
        }
        emit userInfoReceived(TwitchUser::fromJson(data.first().toObject()));
    });
}

} // namespace VCam
