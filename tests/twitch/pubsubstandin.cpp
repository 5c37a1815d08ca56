#include "pubsubstandin.h"

#include "twitchstandin.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QWebSocket>

namespace {

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

bool listensTo(QWebSocket *socket, const QString &topic)
{
    return socket->property("topics").toStringList().contains(topic);
}

} // namespace

PubSubStandIn::PubSubStandIn(TwitchStandIn *twitch, QObject *parent)
    : QObject(parent), m_twitch(twitch), m_server(QStringLiteral("pubsub"), QWebSocketServer::NonSecureMode)
{
    connect(&m_server, &QWebSocketServer::newConnection, this, [this] {
        while (QWebSocket *socket = m_server.nextPendingConnection()) {
            ++m_connections;
            socket->setParent(this);
            m_sockets.append(socket);
            connect(socket, &QWebSocket::textMessageReceived, this,
                    [this, socket](const QString &text) { onText(socket, text); });
            connect(socket, &QWebSocket::disconnected, this, [this, socket] {
                m_sockets.removeOne(socket);
                socket->deleteLater();
            });
        }
    });
}

PubSubStandIn::~PubSubStandIn()
{
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        socket->disconnect(this);
        delete socket;
    }
}

int PubSubStandIn::listeners(const QString &topic) const
{
    return int(std::count_if(m_sockets.begin(), m_sockets.end(),
                             [&](QWebSocket *s) { return listensTo(s, topic); }));
}

void PubSubStandIn::onText(QWebSocket *socket, const QString &text)
{
    const QJsonObject request = QJsonDocument::fromJson(text.toUtf8()).object();
    const QString type = request.value(QLatin1String("type")).toString();
    m_pings += type == QLatin1String("PING");
    if (type == QLatin1String("PING") && !m_pongsPaused)
        socket->sendTextMessage(QStringLiteral("{\"type\":\"PONG\"}"));
    if (type != QLatin1String("LISTEN"))
        return;
    ++m_listens;
    const QJsonObject data = request.value(QLatin1String("data")).toObject();
    m_lastNonce = request.value(QLatin1String("nonce")).toString();
    m_lastTopics.clear();
    for (const QJsonValue &topic : data.value(QLatin1String("topics")).toArray())
        m_lastTopics << topic.toString();
    const bool valid =
        m_twitch->isAccessTokenValid(data.value(QLatin1String("auth_token")).toString().toStdString());
    if (valid)
        socket->setProperty("topics", m_lastTopics);
    socket->sendTextMessage(
        compact({{"type", "RESPONSE"},
                 {"nonce", m_foreignNonces ? QStringLiteral("someone0else0s0nonce") : m_lastNonce},
                 {"error", valid ? QString() : QStringLiteral("ERR_BADAUTH")}}));
}

int PubSubStandIn::publish(const QString &topic, const QJsonObject &message)
{
    int count = 0;
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        if (!listensTo(socket, topic))
            continue;
        ++count;
        socket->sendTextMessage(compact(
            {{"type", "MESSAGE"}, {"data", QJsonObject{{"topic", topic}, {"message", compact(message)}}}}));
    }
    return count;
}

void PubSubStandIn::sendRaw(const QString &text)
{
    for (QWebSocket *socket : qAsConst(m_sockets))
        socket->sendTextMessage(text);
}
