#include "twitchservice.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>
#include <glintdeployment.h>
#include <keychaincomponent.h>
#include <networkmanager.h>
#include <oauthtokens.h>
#include <twitchauthclient.h>
#include <twitchauthorizationhelper.h>
#include <twitcheventsubhelper.h>
#include <twitchextensionshelper.h>
#include <twitchstreamstatehelper.h>
#include <twitchsubscriptionhelper.h>

Q_LOGGING_CATEGORY(lcTwitchService, "glint.twitch.service")

namespace VCam {

TwitchService::TwitchService(NetworkManager *network, KeychainComponent *keychain, QObject *parent)
    : QObject(parent), m_network(network), m_keychain(keychain),
      m_authClient(new TwitchAuthClient(network, this)),
      m_authorization(new TwitchAuthorizationHelper(m_authClient, keychain, this)),
      m_eventSub(new TwitchEventSubHelper(network, this)), m_pubSub(new TwitchSubscriptionHelper(this)),
      m_extensions(new TwitchExtensionsHelper(network, this)),
      m_streamState(new TwitchStreamStateHelper(network, this))
{
    qRegisterMetaType<OAuthTokens>("VCam::OAuthTokens");
    qRegisterMetaType<TwitchUser>("VCam::TwitchUser");
    connect(m_authorization, &TwitchAuthorizationHelper::authorized, this, &TwitchService::onAuthorized);
    connect(m_authorization, &TwitchAuthorizationHelper::deauthorized, this, &TwitchService::onDeauthorized);
    connect(m_authorization, &TwitchAuthorizationHelper::stateChanged, this,
            &TwitchService::authStateChanged);
    connect(m_authorization, &TwitchAuthorizationHelper::userIdReceived, this,
            &TwitchService::onUserIdReceived);
    connect(this, &TwitchService::userInfoReceived, this,
            [this](const TwitchUser &user) { m_streamState->setUserLogin(user.login); });

    connect(m_eventSub, &TwitchEventSubHelper::subscriptionReceived, this,
            &TwitchService::subscriptionReceived);
    connect(m_eventSub, &TwitchEventSubHelper::bitsReceived, this, &TwitchService::bitsReceived);
    connect(m_eventSub, &TwitchEventSubHelper::subscriptionRevoked, this,
            &TwitchService::subscriptionRevoked);
    // A refused token is refreshed; a refused refresh logs the user out.
    connect(m_eventSub, &TwitchEventSubHelper::accessTokenNotValid, m_authClient, &TwitchAuthClient::refresh);
    connect(m_pubSub, &TwitchSubscriptionHelper::subscriptionReceived, this,
            &TwitchService::subscriptionReceived);
    connect(m_pubSub, &TwitchSubscriptionHelper::bitsReceived, this, &TwitchService::bitsReceived);
    connect(m_pubSub, &TwitchSubscriptionHelper::accessTokenNotValid, m_authClient,
            &TwitchAuthClient::refresh);

    connect(m_extensions, &TwitchExtensionsHelper::extensionStatusReceived, this,
            &TwitchService::onExtensionStatusReceived);
    connect(m_extensions, &TwitchExtensionsHelper::extensionStatusRequestFailed, this,
            [this](const QString &error) {
                qCWarning(lcTwitchService).noquote()
                    << QStringLiteral("Can't get extensions status: %1").arg(error);
                m_authorization->setExtensionStatus(TwitchExtensionStatus::NotInstalled);
            });
    connect(m_streamState, &TwitchStreamStateHelper::streamStateReceived, this,
            &TwitchService::streamStateReceived);
    connect(m_keychain, &KeychainComponent::persistentChanged, this, &TwitchService::tokensRememberedChanged);
}

void TwitchService::setLiveEvents(LiveEvents protocol)
{
    m_liveEvents = protocol;
}

void TwitchService::onAuthorized(const QString &token)
{
    if (m_liveEvents == LiveEvents::EventSub)
        m_eventSub->setAccessToken(token);
    else
        m_pubSub->setAccessToken(token);
    emit authorized();
}

void TwitchService::onUserIdReceived(const QString &userId)
{
    if (m_liveEvents == LiveEvents::EventSub)
        m_eventSub->setTwitchUserID(userId);
    else
        m_pubSub->setTwitchUserID(userId);
    m_extensions->check(QString::fromStdString(glint::deployment(glint::kTwitchClientId)));
    requestUser(userId);
}

void TwitchService::onDeauthorized()
{
    m_eventSub->stop();
    m_pubSub->stop();
    m_streamState->stop();
    emit deauthorized();
}

void TwitchService::sendLensUpdate(const nlohmann::json &lens, bool subscribeEnabled)
{
    m_network->sendLensUpdateEvent(lens, subscribeEnabled, nullptr);
}

void TwitchService::sendSubscription(const QJsonObject &subscribe, bool subscribeEnabled)
{
    const QByteArray text = QJsonDocument(subscribe).toJson(QJsonDocument::Compact);
    m_network->sendSubscriptionEvent(nlohmann::json::parse(text.toStdString()), subscribeEnabled, nullptr);
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
