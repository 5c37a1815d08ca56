#include "networkmanager.h"

#include "platformword.h"
#include "realtimer.h"

#include <QDateTime>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QNetworkConfiguration>
#include <QNetworkRequest>
#include <glintdeployment.h>

Q_LOGGING_CATEGORY(lcNetwork, "glint.network")

namespace VCam {

namespace {

const QByteArray kJsonType = "application/json";

QString deploymentText(const glint::DeploymentConstant &constant)
{
    return QString::fromStdString(glint::deployment(constant));
}

// Joins a base address and a relative part with exactly one slash.
QString joined(QString base, const QString &rest)
{
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    return base + rest;
}

QString errorKey(QNetworkReply::NetworkError code)
{
    const QMetaEnum meta = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    const char *key = meta.valueToKey(code);
    return key ? QString::fromLatin1(key) : QString::number(code);
}

std::string utf8(const QString &text)
{
    return text.toStdString();
}

} // namespace

NetworkManager::NetworkManager(const QString &baseUrl, InstallationIdSource installationId, QObject *parent)
    : QObject(parent), m_manager(new QNetworkAccessManager(this)), m_recheckTimer(new RealTimer(this)),
      m_baseUrl(baseUrl), m_installationId(std::move(installationId))
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    QNetworkConfiguration configuration = m_manager->configuration();
    configuration.setConnectTimeout(kConnectTimeoutMs);
    m_manager->setConfiguration(configuration);
    QT_WARNING_POP
    connect(m_manager, &QNetworkAccessManager::finished, this, &NetworkManager::handleNetworkReply);
    connect(m_manager, &QNetworkAccessManager::sslErrors, this, &NetworkManager::handleSslErrors);
    connect(m_recheckTimer, &RealTimer::timeout, this, &NetworkManager::onRecheckTimeout);
}

NetworkManager::~NetworkManager()
{
    // Replies still in flight are abandoned with the access manager.
    m_manager->disconnect(this);
    m_pending.clear();
}

QString NetworkManager::defaultBaseUrl()
{
    return deploymentText(glint::kBackendUrl);
}

QNetworkRequest NetworkManager::backendRequest(const QString &pathAndQuery) const
{
    QNetworkRequest request(QUrl(m_baseUrl + pathAndQuery));
    request.setRawHeader("X-Installation-Id", (m_installationId ? m_installationId() : QString()).toUtf8());
    request.setRawHeader("Origin", "https://localhost/");
    return request;
}

void NetworkManager::send(const QNetworkRequest &request, Verb verb, const QByteArray &body,
                          const Request &call, qint64 maxBytes)
{
    QNetworkRequest timed(request);
    // Gives up when nothing moves for this long, connecting included.
    timed.setTransferTimeout(kConnectTimeoutMs);
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    if (m_manager->networkAccessible() != QNetworkAccessManager::Accessible)
        m_manager->setNetworkAccessible(QNetworkAccessManager::Accessible);
    QT_WARNING_POP
    QNetworkReply *reply = verb == Verb::Get ? m_manager->get(timed) : m_manager->post(timed, body);
    guardSize(reply, maxBytes);
    m_pending.emplace(reply, call);
}

void NetworkManager::guardSize(QNetworkReply *reply, qint64 maxBytes)
{
    connect(reply, &QNetworkReply::downloadProgress, this, [this, reply, maxBytes](qint64 received, qint64) {
        if (received > maxBytes && m_oversized.insert(reply).second)
            reply->abort();
    });
}

void NetworkManager::sendJson(const QString &path, const nlohmann::json &body, RequestType type,
                              Completion done)
{
    QNetworkRequest request = backendRequest(path);
    request.setHeader(QNetworkRequest::ContentTypeHeader, kJsonType);
    const QByteArray bytes = QByteArray::fromStdString(body.dump());
    send(request, Verb::Post, bytes, Request(request.url(), type, std::move(done)), kMaxJsonAnswerBytes);
}

void NetworkManager::requestScheduledLenses(Completion done)
{
    const QNetworkRequest request = backendRequest(QStringLiteral("/explorer/scheduled"));
    send(request, Verb::Get, {}, Request(request.url(), RequestType::ScheduledLenses, std::move(done)),
         kMaxJsonAnswerBytes);
}

void NetworkManager::requestTopLenses(int offset, int limit, Completion done)
{
    const QString query = QStringLiteral("country=US&offset=%1&limit=%2").arg(offset).arg(limit);
    const QNetworkRequest request = backendRequest(QStringLiteral("/explorer/top?") + query);
    send(request, Verb::Get, {}, Request(request.url(), RequestType::TopLenses, std::move(done)),
         kMaxJsonAnswerBytes);
}

void NetworkManager::searchLenses(const QString &query, Completion done)
{
    sendJson(QStringLiteral("/explorer/search"), {{"query", utf8(query)}}, RequestType::SearchLenses,
             std::move(done));
}

void NetworkManager::requestUnlock(const LensId &lensId, Completion done)
{
    const QString uid = QString::fromLatin1(QUrl::toPercentEncoding(lensId));
    const QNetworkRequest request = backendRequest(QStringLiteral("/explorer/unlock?uid=") + uid);
    send(request, Verb::Get, {}, Request(request.url(), RequestType::UnlockLens, std::move(done)),
         kMaxJsonAnswerBytes);
}

void NetworkManager::requestLenses(const std::vector<LensId> &ids, Completion done)
{
    nlohmann::json list = nlohmann::json::array();
    for (const LensId &id : ids)
        list.push_back(utf8(id));
    sendJson(QStringLiteral("/explorer/lenses"), {{"lenses", list}}, RequestType::LensesById,
             std::move(done));
}

void NetworkManager::reportLens(const LensId &lensId, const QString &context, Completion done)
{
    const nlohmann::json body = {{"lens_id", utf8(lensId)},
                                 {"reason_id", "report_lens_reason_this_lens_is_inappropriate"},
                                 {"context", utf8(context)}};
    sendJson(QStringLiteral("/reporting/lens"), body, RequestType::ReportLens, std::move(done));
}

void NetworkManager::sendLensUpdateEvent(const nlohmann::json &lens, bool subscribeEnabled, Completion done)
{
    const nlohmann::json body = {{"token", utf8(m_accessToken)},
                                 {"action", "lens_update"},
                                 {"client_ts", QDateTime::currentSecsSinceEpoch()},
                                 {"payload", {{"lens", lens}}},
                                 {"is_subscribe_enabled", subscribeEnabled}};
    sendJson(QStringLiteral("/stream/event"), body, RequestType::StreamEvent, std::move(done));
}

void NetworkManager::sendSubscriptionEvent(const nlohmann::json &subscribe, bool subscribeEnabled,
                                           Completion done)
{
    const nlohmann::json body = {{"token", utf8(m_accessToken)},
                                 {"action", "subscription"},
                                 {"client_ts", QDateTime::currentSecsSinceEpoch()},
                                 {"payload", {{"subscribe", subscribe}}},
                                 {"is_subscribe_enabled", subscribeEnabled}};
    sendJson(QStringLiteral("/stream/event"), body, RequestType::SubscriptionEvent, std::move(done));
}

void NetworkManager::exchangeTwitchCode(const QString &code, const QString &redirectUri, Completion done)
{
    const nlohmann::json body = {{"twitch",
                                  {{"client_id", glint::deployment(glint::kTwitchClientId)},
                                   {"code", utf8(code)},
                                   {"redirect_uri", utf8(redirectUri)}}}};
    sendJson(QStringLiteral("/stream/authorize"), body, RequestType::TwitchAuthorize, std::move(done));
}

void NetworkManager::refreshTwitchToken(const QString &refreshToken, Completion done)
{
    const nlohmann::json body = {
        {"twitch",
         {{"client_id", glint::deployment(glint::kTwitchClientId)}, {"refresh_token", utf8(refreshToken)}}}};
    sendJson(QStringLiteral("/stream/authorize/refresh"), body, RequestType::TwitchRefresh, std::move(done));
}

QUrl NetworkManager::getAuthorizationUrl() const
{
    return QUrl(
        joined(deploymentText(glint::kTwitchOAuthUrl),
               QStringLiteral("authorize?client_id=%1&redirect_uri=%2&response_type=code&scope="
                              "channel_read%20channel_subscriptions%20user:edit:broadcast%20"
                              "channel:read:subscriptions%20bits:read")
                   .arg(deploymentText(glint::kTwitchClientId), QStringLiteral("http://localhost:8492/"))));
}

QUrl NetworkManager::getRevocationUrl() const
{
    return QUrl(joined(deploymentText(glint::kTwitchOAuthUrl), QStringLiteral("revoke?client_id=%1&token=%2"))
                    .arg(deploymentText(glint::kTwitchClientId),
                         QString::fromLatin1(QUrl::toPercentEncoding(m_accessToken))));
}

QUrl NetworkManager::getRefreshUrl() const
{
    return QUrl(m_baseUrl + QStringLiteral("/stream/authorize/refresh"));
}

// Whatever Twitch answers, the token is forgotten and the login counts as lost.
void NetworkManager::revokeTwitchToken(Completion done)
{
    QNetworkRequest request(getRevocationUrl());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/x-www-form-urlencoded"));
    auto revoked = [this, done](int status, const QByteArray &body, const QString &failure) {
        m_accessToken.clear();
        if (done)
            done(status, body, failure);
        emit authorizationLost();
    };
    send(request, Verb::Post, {}, Request(request.url(), RequestType::TwitchRevoke, revoked),
         kMaxJsonAnswerBytes);
}

void NetworkManager::requestHelix(const QString &pathAndQuery, Completion done)
{
    QNetworkRequest request(QUrl(joined(deploymentText(glint::kTwitchHelixUrl), pathAndQuery)));
    request.setRawHeader("Authorization", "Bearer " + m_accessToken.toLatin1());
    request.setRawHeader("Client-Id", QByteArray::fromStdString(glint::deployment(glint::kTwitchClientId)));
    send(request, Verb::Get, {}, Request(request.url(), RequestType::TwitchApi, std::move(done)),
         kMaxJsonAnswerBytes);
}

void NetworkManager::postHelix(const QString &pathAndQuery, const nlohmann::json &body, Completion done)
{
    QNetworkRequest request(QUrl(joined(deploymentText(glint::kTwitchHelixUrl), pathAndQuery)));
    request.setRawHeader("Authorization", "Bearer " + m_accessToken.toLatin1());
    request.setRawHeader("Client-Id", QByteArray::fromStdString(glint::deployment(glint::kTwitchClientId)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, kJsonType);
    send(request, Verb::Post, QByteArray::fromStdString(body.dump()),
         Request(request.url(), RequestType::TwitchApi, std::move(done)), kMaxJsonAnswerBytes);
}

void NetworkManager::requestTwitchUserId()
{
    QNetworkRequest request(QUrl(joined(deploymentText(glint::kTwitchOAuthUrl), QStringLiteral("validate"))));
    request.setRawHeader("Authorization", "OAuth " + m_accessToken.toLatin1());
    auto done = [this](int status, const QByteArray &body, const QString &) {
        if (status == 401) {
            // Twitch no longer accepts the token (revoked on Twitch's side,
            // for one): the link is over.
            qCWarning(lcNetwork) << "Twitch refused the access token on validation";
            m_accessToken.clear();
            emit authorizationLost();
            return;
        }
        const auto json =
            nlohmann::json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
        if (status / 100 != 2 || !json.is_object())
            return;
        const auto text = [&json](const char *key) {
            const auto it = json.find(key);
            return it != json.end() && it->is_string() ? QString::fromStdString(it->get<std::string>())
                                                       : QString();
        };
        m_twitchLogin = text("login");
        m_twitchUserId = text("user_id");
        emit twitchUserIdReceived(m_twitchLogin, m_twitchUserId);
    };
    send(request, Verb::Get, {}, Request(request.url(), RequestType::TwitchApi, done), kMaxJsonAnswerBytes);
}

void NetworkManager::requestLatestVersion(Completion done)
{
    const QNetworkRequest request =
        backendRequest(QStringLiteral("/update/latest?platform=") + platformWord());
    send(request, Verb::Get, {}, Request(request.url(), RequestType::LatestVersion, std::move(done)),
         kMaxJsonAnswerBytes);
}

void NetworkManager::requestUpdateDownload(Completion done)
{
    const QNetworkRequest request =
        backendRequest(QStringLiteral("/update/download?platform=") + platformWord());
    send(request, Verb::Get, {}, Request(request.url(), RequestType::UpdateDownload, std::move(done)),
         m_maxDownloadBytes);
}

void NetworkManager::sendAnalyticsBatch(const QByteArray &batch, size_t batchIdx)
{
    QNetworkRequest request = backendRequest(QString());
    request.setUrl(QUrl(deploymentText(glint::kAnalyticsUrl)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/octet-stream"));
    auto done = [this, batchIdx](int status, const QByteArray &, const QString &failure) {
        if (failure.isEmpty() && status / 100 == 2)
            emit analyticsReportSent(batchIdx);
        else
            emit analyticsReportSendFailed(batchIdx);
    };
    send(request, Verb::Post, batch, Request(request.url(), RequestType::Analytics, done),
         kMaxJsonAnswerBytes);
}

void NetworkManager::download(const QUrl &url, Completion done)
{
    const QNetworkRequest request(url);
    send(request, Verb::Get, {}, Request(url, RequestType::Download, std::move(done)), m_maxDownloadBytes);
}

void NetworkManager::handleNetworkReply(QNetworkReply *reply)
{
    const auto it = m_pending.find(reply);
    if (it == m_pending.end())
        return;
    const Request call = it->second;
    m_pending.erase(it);
    const bool oversized = m_oversized.erase(reply) > 0;
    reply->deleteLater();

    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    QString failure;
    if (oversized) {
        // The answer may have arrived whole before the abort took effect.
        failure = QStringLiteral("The answer is larger than allowed");
        qCCritical(lcNetwork).noquote()
            << "Answer too large for" << call.getUrl().toString(QUrl::RemoveQuery);
    } else if (reply->error() != QNetworkReply::NoError) {
        failure = reply->errorString();
        qCCritical(lcNetwork).noquote() << "Network error" << errorKey(reply->error()) << "for"
                                        << call.getUrl().toString(QUrl::RemoveQuery) << ":" << failure;
    }
    if (status == 429) {
        emit error(kTooManyRequests);
        // A turned-away analytics batch must still be reported as failed, or
        // its events would wait for an answer that never comes.
        if (call.getType() == RequestType::Analytics)
            call.complete(status, QByteArray(), kTooManyRequests);
        return;
    }
    switch (call.getType()) {
    case RequestType::NetworkCheck:
        onCheckFinished(failure.isEmpty() && status / 100 == 2);
        return;
    case RequestType::TwitchRefresh:
        if (!failure.isEmpty()) {
            emit authorizationLost();
            return;
        }
        break;
    default:
        break;
    }
    if (!failure.isEmpty() && !call.doesHandleErrors()) {
        emit error(failure);
        return;
    }
    call.complete(status, failure.isEmpty() ? reply->readAll() : QByteArray(), failure);
}

void NetworkManager::handleSslErrors(QNetworkReply *, const QList<QSslError> &errors)
{
    // Not ignored: the reply then fails through the normal path.
    for (const QSslError &sslError : errors)
        qCCritical(lcNetwork).noquote() << QStringLiteral("SSL error: %1").arg(sslError.errorString());
}

void NetworkManager::updateNetworkStatus()
{
    const QNetworkRequest request =
        backendRequest(QStringLiteral("/update/latest?platform=") + platformWord());
    send(request, Verb::Get, {}, Request(request.url(), RequestType::NetworkCheck, {}), kMaxJsonAnswerBytes);
}

void NetworkManager::onCheckFinished(bool ok)
{
    if (ok) {
        m_recheckTimer->stop();
        emit networkCheckOk();
        if (!m_isOnline) {
            m_failedChecks = 0;
            m_isOnline = true;
            emit networkStateChanged(true);
        }
        return;
    }
    ++m_failedChecks;
    if (!m_recheckTimer->isActive())
        m_recheckTimer->start(m_recheckMs);
    emit networkCheckFailed();
    if (m_isOnline) {
        m_isOnline = false;
        emit networkStateChanged(false);
    }
}

void NetworkManager::onRecheckTimeout()
{
    m_recheckTimer->stop();
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it->second.getType() == RequestType::NetworkCheck) {
            QNetworkReply *reply = it->first;
            it = m_pending.erase(it);
            reply->disconnect(this);
            reply->abort();
            reply->deleteLater();
        } else {
            ++it;
        }
    }
    updateNetworkStatus();
}

} // namespace VCam
