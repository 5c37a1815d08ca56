#pragma once

#include "lensid.h"
#include "request.h"

#include <QLoggingCategory>
#include <QNetworkReply>
#include <QObject>
#include <QSslError>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

class QNetworkAccessManager;
class QNetworkRequest;

Q_DECLARE_LOGGING_CATEGORY(lcNetwork)

namespace VCam {

class RealTimer;

// The one HTTP client of the program: builds every backend request (URL,
// headers, JSON body), keeps the replies in flight and hands each finished
// reply to its caller's completion routine. Tracks whether the backend is
// reachable. Lives on the main thread.
class NetworkManager : public QObject
{
    Q_OBJECT
public:
    using Completion = Request::Completion;
    using InstallationIdSource = std::function<QString()>;

    static constexpr int kConnectTimeoutMs = 2000;
    static constexpr int kDefaultRecheckMs = 10000;
    static constexpr qint64 kMaxJsonAnswerBytes = 16ll * 1024 * 1024;
    static constexpr qint64 kDefaultMaxDownloadBytes = 256ll * 1024 * 1024;
    static inline const QString kTooManyRequests =
        QStringLiteral("Too many requests, please try again later");

    // baseUrl: the backend's base ending in "/vc/v1"; installationId gives
    // the identifier sent with every backend request.
    NetworkManager(const QString &baseUrl, InstallationIdSource installationId, QObject *parent = nullptr);
    ~NetworkManager() override;

    // The compiled backend address or its GLINT_BACKEND_URL override.
    static QString defaultBaseUrl();

    QString baseUrl() const { return m_baseUrl; }
    bool isOnline() const { return m_isOnline; }
    int failedChecks() const { return m_failedChecks; }
    int pendingCount() const { return static_cast<int>(m_pending.size()); }
    void setRecheckInterval(int ms) { m_recheckMs = ms; }
    void setMaxDownloadBytes(qint64 bytes) { m_maxDownloadBytes = bytes; }

    void setAccessToken(const QString &token) { m_accessToken = token; }
    QString accessToken() const { return m_accessToken; }
    QString twitchLogin() const { return m_twitchLogin; }
    QString twitchUserId() const { return m_twitchUserId; }

    // Lens catalogue.
    void requestScheduledLenses(Completion done);
    void requestTopLenses(int offset, int limit, Completion done);
    void searchLenses(const QString &query, Completion done);
    void requestUnlock(const LensId &lensId, Completion done);
    void requestLenses(const std::vector<LensId> &ids, Completion done);
    void reportLens(const LensId &lensId, const QString &context, Completion done);

    // Stream events, sent with the Twitch access token.
    void sendLensUpdateEvent(const nlohmann::json &lens, bool subscribeEnabled, Completion done);
    void sendSubscriptionEvent(const nlohmann::json &subscribe, bool subscribeEnabled, Completion done);

    // Twitch authorisation through the backend, revocation at Twitch.
    void exchangeTwitchCode(const QString &code, const QString &redirectUri, Completion done);
    void refreshTwitchToken(const QString &refreshToken, Completion done);
    void revokeTwitchToken(Completion done); // then clears the token, emits authorizationLost
    // A Helix call with "Bearer" authorisation; path is relative to Helix.
    void requestHelix(const QString &pathAndQuery, Completion done);
    // A Helix POST of a JSON body, same authorisation.
    void postHelix(const QString &pathAndQuery, const nlohmann::json &body, Completion done);
    QUrl getAuthorizationUrl() const;
    QUrl getRevocationUrl() const;
    QUrl getRefreshUrl() const;

    // Updates and analytics.
    void requestLatestVersion(Completion done);
    void requestUpdateDownload(Completion done);
    void sendAnalyticsBatch(const QByteArray &batch, size_t batchIdx);

    // A plain GET of any URL without backend headers (lens archives, images).
    void download(const QUrl &url, Completion done);

signals:
    void authorizationLost();
    void networkStateChanged(bool isOnline);
    void networkCheckOk();
    void networkCheckFailed();
    void analyticsReportSent(size_t batchIdx);
    void analyticsReportSendFailed(size_t batchIdx);
    void twitchUserIdReceived(const QString &login, const QString &userId);
    void error(const QString &message);

public slots:
    void handleNetworkReply(QNetworkReply *reply);
    void updateNetworkStatus();
    void handleSslErrors(QNetworkReply *reply, const QList<QSslError> &errors);
    void requestTwitchUserId();

private:
    enum class Verb { Get, Post };

    QNetworkRequest backendRequest(const QString &pathAndQuery) const;
    void sendJson(const QString &path, const nlohmann::json &body, RequestType type, Completion done);
    void send(const QNetworkRequest &request, Verb verb, const QByteArray &body, const Request &call,
              qint64 maxBytes);
    void onCheckFinished(bool ok);
    void onRecheckTimeout();
    void guardSize(QNetworkReply *reply, qint64 maxBytes);

    QNetworkAccessManager *m_manager = nullptr;
    RealTimer *m_recheckTimer = nullptr;
    QString m_baseUrl;
    InstallationIdSource m_installationId;
    std::map<QNetworkReply *, Request> m_pending;
    std::set<QNetworkReply *> m_oversized;
    QString m_accessToken;
    QString m_twitchLogin;
    QString m_twitchUserId;
    bool m_isOnline = true;
    int m_failedChecks = 0;
    int m_recheckMs = kDefaultRecheckMs;
    qint64 m_maxDownloadBytes = kDefaultMaxDownloadBytes;
};

} // namespace VCam
