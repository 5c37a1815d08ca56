#pragma once

#include "bitsevent.h"
#include "subscribeevent.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>
#include <QUrl>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchEventSub)

class QWebSocket;

namespace VCam {

class NetworkManager;

// The live-event client over EventSub WebSockets. Opens a session, creates
// the channel's subscription and cheer subscriptions for that session
// through Helix and turns their notifications into SubscribeEvent and
// BitsEvent. Keeps the session alive: a missed keepalive or a dropped socket
// reconnects with a growing delay, a session_reconnect moves to the new
// address without dropping the subscriptions.
class TwitchEventSubHelper : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFirstReconnectDelayMs = 1000;
    static constexpr int kMaxReconnectDelayMs = 64000;
    // A session that lived this long before it dropped starts the delays over.
    static constexpr int kStableSessionMs = 30000;
    static constexpr int kKeepaliveGraceMs = 1000;
    // Event messages are a few KiB; anything bigger is dropped unread.
    static constexpr int kMaxMessageBytes = 64 * 1024;
    // Beyond this the socket itself gives up on the frame.
    static constexpr qint64 kMaxSocketMessageBytes = 4 * 1024 * 1024;

    explicit TwitchEventSubHelper(NetworkManager *network, QObject *parent = nullptr);
    ~TwitchEventSubHelper() override;

    // The address a new session opens on; the deployment constant otherwise.
    void setUrl(const QUrl &url) { m_url = url; }
    QUrl url() const { return m_url; }
    QString sessionId() const { return m_sessionId; }
    // Subscription types that exist for the current session.
    QStringList activeSubscriptions() const;
    int reconnectDelay() const { return m_reconnectDelayMs; }
    int connectionAttempts() const { return m_attempts; }

public slots:
    void setAccessToken(const QString &token);
    void setTwitchUserID(const QString &userId);
    // Logout: closes the session and forgets token and user.
    void stop();

signals:
    void subscriptionReceived(const VCam::SubscribeEvent &event);
    void bitsReceived(const VCam::BitsEvent &event);
    void accessTokenNotValid();
    void subscriptionRevoked(const QString &type, const QString &status);
    void sessionWelcomed(const QString &sessionId);

private:
    void start();
    void open(const QUrl &url, bool moving);
    void closeSocket(QWebSocket *&socket);
    void onText(QWebSocket *socket, const QString &text);
    void onDisconnected(QWebSocket *socket);
    void onWelcome(QWebSocket *socket, const QJsonObject &session);
    void onReconnectRequested(const QJsonObject &session);
    void onNotification(const QJsonObject &metadata, const QJsonObject &payload);
    void onRevocation(const QJsonObject &payload);
    void onKeepaliveMissed();
    void scheduleReconnect();
    void createSubscriptions();
    void createSubscription(const QString &type);
    void onCreateAnswer(const QString &type, const QString &session, int status, const QByteArray &body,
                        const QString &failure);
    bool seenBefore(const QString &messageId);
    void restartKeepalive();

    NetworkManager *m_network;
    QUrl m_url;
    QWebSocket *m_socket = nullptr; // the session in use
    QWebSocket *m_next = nullptr;   // the session we are moving to
    QTimer m_reconnectTimer;
    QTimer m_keepaliveTimer;
    QElapsedTimer m_sessionAge;
    QString m_token;
    QString m_userId;
    QString m_sessionId;
    int m_keepaliveMs = 10000;
    int m_reconnectDelayMs = kFirstReconnectDelayMs;
    int m_attempts = 0;
    QSet<QString> m_created;
    QSet<QString> m_pending;
    QString m_reportedToken; // the token last reported as not valid
    int m_refusedTokens = 0;
    bool m_moving = false;   // the old session closed before the new one welcomed us
    QStringList m_recentIds; // message ids already handled
};

} // namespace VCam
