#pragma once

#include "bitsevent.h"
#include "subscribeevent.h"

#include <QAbstractSocket>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMap>
#include <QObject>
#include <QTimer>
#include <QWebSocket>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchPubSub)

namespace VCam {

// The live-event client over PubSub, for servers that still speak it:
// LISTENs to the channel's subscription and bits topics, keeps the socket
// alive with PING every four minutes, reconnects after drops and parses the
// MESSAGEs into SubscribeEvent and BitsEvent.
class TwitchSubscriptionHelper : public QObject
{
    Q_OBJECT
public:
    static constexpr int kPingIntervalMs = 240000;
    static constexpr int kPongWaitMs = 10000;
    static constexpr int kMaxNonceRetries = 3;
    static constexpr int kMaxMessageBytes = 64 * 1024;
    static constexpr qint64 kMaxSocketMessageBytes = 4 * 1024 * 1024;

    explicit TwitchSubscriptionHelper(QObject *parent = nullptr);
    ~TwitchSubscriptionHelper() override;

    void setUrl(const QUrl &url) { m_url = url; }
    // Four minutes and ten seconds are too long for a test to sit through.
    void setPingIntervals(int pingMs, int pongWaitMs);
    QString nonce() const { return m_nonce; }
    int reconnectDelay() const { return m_reconnectDelay; }
    int nonceRetries() const { return m_nonceRetries; }
    QStringList topics() const { return m_topics.keys(); }
    QAbstractSocket::SocketState state() const { return m_socket.state(); }

    // The subscription topic's message text (itself JSON) as an event.
    static bool parseSubscription(const QString &message, SubscribeEvent *event, QString *error);
    static bool parseBits(const QString &message, BitsEvent *event, QString *error);

signals:
    void subscriptionReceived(const VCam::SubscribeEvent &event);
    void bitsReceived(const VCam::BitsEvent &event);
    void accessTokenNotValid();

public slots:
    void setAccessToken(const QString &token);
    void setTwitchUserID(const QString &userId);
    void doSubscribe();
    void handleTextMessage(const QString &message);
    void connectToPubSub();
    void handleWebSocketError(QAbstractSocket::SocketError error);
    void handleDisconnected();
    void sendPing();
    // Logout: closes the socket, forgets token and user, stops every timer.
    void stop();

private:
    using Parser = bool (TwitchSubscriptionHelper::*)(const QString &message, QString *error);

    bool handleSubscription(const QString &message, QString *error);
    bool handleBits(const QString &message, QString *error);
    void handleResponse(const QJsonObject &response);
    void handleMessage(const QJsonObject &message);
    void connectWhenReady();
    void startReconnectTimer();

    QWebSocket m_socket;
    QTimer m_reconnectTimer;
    QTimer m_pingTimer;
    QTimer m_pongWaitTimer;
    QString m_accessToken;
    QString m_twitchUserId;
    QMap<QString, Parser> m_topics;
    QString m_nonce;
    int m_reconnectDelay = 2;
    int m_nonceRetries = 0;

    QUrl m_url;
    int m_pingIntervalMs = kPingIntervalMs;
    int m_pongWaitMs = kPongWaitMs;
    bool m_closing = false; // a close of our own, not a drop
};

} // namespace VCam
