#pragma once

#include <QJsonObject>
#include <QObject>
#include <QWebSocketServer>

class QWebSocket;
class TwitchStandIn;

// Twitch's EventSub WebSocket side on loopback: welcomes each connection
// with a session, sends keepalives, closes a session that has no
// subscription 10 seconds after its welcome (4003), moves sessions on
// session_reconnect and delivers notifications to the sessions that hold
// the subscription. Subscriptions are created over Helix on the
// TwitchStandIn, which keeps the sessions.
class EventSubStandIn : public QObject
{
    Q_OBJECT
public:
    explicit EventSubStandIn(TwitchStandIn *twitch, QObject *parent = nullptr);
    ~EventSubStandIn() override;

    bool start() { return m_server.listen(QHostAddress::LocalHost); }
    QString url() const { return QStringLiteral("ws://127.0.0.1:%1/ws").arg(m_server.serverPort()); }

    void setKeepaliveSeconds(int seconds) { m_keepaliveSeconds = seconds; }
    // Stops (or resumes) the keepalives while the socket stays open.
    void setKeepalivesPaused(bool paused) { m_keepalivesPaused = paused; }
    // Drops every session this long after its welcome; 0 keeps them.
    void setCloseAfterWelcomeMs(int ms) { m_closeAfterMs = ms; }

    int connections() const { return m_connections; }
    int liveSessions() const { return m_sockets.size(); }
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
    void sendRaw(const QString &text);
    // Ends every session (close code 4000).
    void closeAll();
    // session_reconnect to every session, pointing at this server.
    void requestReconnect();

private:
    void welcome(QWebSocket *socket, const QString &movedFrom);
    void send(QWebSocket *socket, const QString &type, const QJsonObject &payload,
              const QString &subscriptionType = QString());
    bool subscribed(QWebSocket *socket, const QString &type) const;

    TwitchStandIn *m_twitch;
    QWebSocketServer m_server;
    QList<QWebSocket *> m_sockets;
    int m_keepaliveSeconds = 10;
    bool m_keepalivesPaused = false;
    int m_closeAfterMs = 0;
    int m_connections = 0;
    QString m_lastSessionId;
};
