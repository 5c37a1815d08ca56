#pragma once

#include <QJsonObject>
#include <QObject>
#include <QStringList>
#include <QWebSocketServer>

class QWebSocket;
class TwitchStandIn;

// Twitch's two live-event WebSocket services on one loopback server.
// EventSub (path /ws) welcomes each connection with a session, sends
// keepalives, closes a session that has no subscription 10 seconds after its
// welcome (4003), moves sessions on session_reconnect and delivers
// notifications to the sessions that hold the subscription; subscriptions
// are created over Helix on the TwitchStandIn, which keeps the sessions.
// PubSub (path /pubsub) answers LISTEN with a RESPONSE carrying the
// request's nonce (ERR_BADAUTH for a token the stand-in does not know), PING
// with PONG, and publishes MESSAGEs to the connections that listen to a
// topic.
class LiveEventsStandIn : public QObject
{
    Q_OBJECT
public:
    explicit LiveEventsStandIn(TwitchStandIn *twitch, QObject *parent = nullptr);
    ~LiveEventsStandIn() override;

    bool start() { return m_server.listen(QHostAddress::LocalHost); }
    QString eventSubUrl() const { return QStringLiteral("ws://127.0.0.1:%1/ws").arg(m_server.serverPort()); }
    QString pubSubUrl() const
    {
        return QStringLiteral("ws://127.0.0.1:%1/pubsub").arg(m_server.serverPort());
    }
    int connections() const { return m_connections; }
    int openSockets() const { return m_sockets.size(); }
    void sendRaw(const QString &text);

    // EventSub.
    void setKeepaliveSeconds(int seconds) { m_keepaliveSeconds = seconds; }
    // Stops (or resumes) the keepalives while the sockets stay open.
    void setKeepalivesPaused(bool paused) { m_keepalivesPaused = paused; }
    // Drops every session this long after its welcome; 0 keeps them.
    void setCloseAfterWelcomeMs(int ms) { m_closeAfterMs = ms; }
    QString lastSessionId() const { return m_lastSessionId; }
    // A notification to every session subscribed to the type; false when
    // no session is.
    bool notify(const QString &type, const QJsonObject &event);
    // A viewer's subscription at a tier ("1000", "2000", "3000").
    QJsonObject subscription(const QString &tier) const;
    bool subscribe(const QString &tier)
    {
        return notify(QStringLiteral("channel.subscribe"), subscription(tier));
    }
    // Ends every session (close code 4000).
    void closeAll();
    // session_reconnect to every session, pointing at this server.
    void requestReconnect();

    // PubSub.
    void setPongsPaused(bool paused) { m_pongsPaused = paused; }
    int listens() const { return m_listens; }
    int pings() const { return m_pings; }
    // Connections whose LISTEN for topic was accepted.
    int listeners(const QString &topic) const;
    QStringList lastTopics() const { return m_lastTopics; }
    QString lastNonce() const { return m_lastNonce; }
    // A MESSAGE for every connection that listens to topic; how many got it.
    int publish(const QString &topic, const QJsonObject &message);

private:
    void welcome(QWebSocket *socket, const QString &movedFrom);
    void send(QWebSocket *socket, const QString &type, const QJsonObject &payload,
              const QString &subscriptionType = QString());
    void onPubSubText(QWebSocket *socket, const QString &text);
    QList<QWebSocket *> sessionsWith(const QString &subscriptionType) const;

    TwitchStandIn *m_twitch;
    QWebSocketServer m_server;
    QList<QWebSocket *> m_sockets;
    int m_connections = 0;
    int m_keepaliveSeconds = 10;
    bool m_keepalivesPaused = false;
    int m_closeAfterMs = 0;
    QString m_lastSessionId;
    bool m_pongsPaused = false;
    int m_listens = 0;
    int m_pings = 0;
    QStringList m_lastTopics;
    QString m_lastNonce;
};
