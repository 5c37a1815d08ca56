#pragma once

#include <QJsonObject>
#include <QObject>
#include <QStringList>
#include <QWebSocketServer>

class QWebSocket;
class TwitchStandIn;

// Twitch's PubSub side on loopback: answers LISTEN with a RESPONSE that
// carries the request's nonce (ERR_BADAUTH for a token the stand-in does not
// know), PING with PONG, and publishes MESSAGEs to the connections that
// listen to a topic.
class PubSubStandIn : public QObject
{
    Q_OBJECT
public:
    explicit PubSubStandIn(TwitchStandIn *twitch, QObject *parent = nullptr);
    ~PubSubStandIn() override;

    bool start() { return m_server.listen(QHostAddress::LocalHost); }
    QString url() const { return QStringLiteral("ws://127.0.0.1:%1").arg(m_server.serverPort()); }

    void setPongsPaused(bool paused) { m_pongsPaused = paused; }
    // RESPONSEs carry a nonce that is not the request's.
    void setForeignNonces(bool foreign) { m_foreignNonces = foreign; }

    int connections() const { return m_connections; }
    int listens() const { return m_listens; }
    int pings() const { return m_pings; }
    int openSockets() const { return m_sockets.size(); }
    // Connections whose LISTEN for topic was accepted.
    int listeners(const QString &topic) const;
    QStringList lastTopics() const { return m_lastTopics; }
    QString lastNonce() const { return m_lastNonce; }

    // A MESSAGE for every connection that listens to topic; how many got it.
    int publish(const QString &topic, const QJsonObject &message);
    void sendRaw(const QString &text);

private:
    void onText(QWebSocket *socket, const QString &text);

    TwitchStandIn *m_twitch;
    QWebSocketServer m_server;
    QList<QWebSocket *> m_sockets;
    bool m_pongsPaused = false;
    bool m_foreignNonces = false;
    int m_connections = 0;
    int m_listens = 0;
    int m_pings = 0;
    QStringList m_lastTopics;
    QString m_lastNonce;
};
