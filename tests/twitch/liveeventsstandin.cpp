#include "liveeventsstandin.h"

#include "twitchstandin.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>
#include <QUrlQuery>
#include <QUuid>
#include <QWebSocket>

namespace {

QString now()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QString sessionOf(QWebSocket *socket)
{
    return socket->property("session").toString();
}

bool listensTo(QWebSocket *socket, const QString &topic)
{
    return socket->property("topics").toStringList().contains(topic);
}

} // namespace

LiveEventsStandIn::LiveEventsStandIn(TwitchStandIn *twitch, QObject *parent)
    : QObject(parent), m_twitch(twitch),
      m_server(QStringLiteral("live events"), QWebSocketServer::NonSecureMode)
{
    connect(&m_server, &QWebSocketServer::newConnection, this, [this] {
        while (QWebSocket *socket = m_server.nextPendingConnection()) {
            ++m_connections;
            socket->setParent(this);
            m_sockets.append(socket);
            connect(socket, &QWebSocket::disconnected, this, [this, socket] {
                m_twitch->moveSession(sessionOf(socket).toStdString(), std::string());
                m_sockets.removeOne(socket);
                socket->deleteLater();
            });
            if (socket->requestUrl().path() == QLatin1String("/pubsub"))
                connect(socket, &QWebSocket::textMessageReceived, this,
                        [this, socket](const QString &text) { onPubSubText(socket, text); });
            else
                welcome(socket, QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("reconnect")));
        }
    });
}

LiveEventsStandIn::~LiveEventsStandIn()
{
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        socket->disconnect(this);
        delete socket;
    }
}

void LiveEventsStandIn::sendRaw(const QString &text)
{
    for (QWebSocket *socket : qAsConst(m_sockets))
        socket->sendTextMessage(text);
}

void LiveEventsStandIn::welcome(QWebSocket *socket, const QString &movedFrom)
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128).left(24);
    socket->setProperty("session", id);
    m_lastSessionId = id;
    m_twitch->moveSession(movedFrom.toStdString(), id.toStdString());
    auto *keepalive = new QTimer(socket);
    connect(keepalive, &QTimer::timeout, socket, [this, socket] {
        if (!m_keepalivesPaused)
            send(socket, QStringLiteral("session_keepalive"), {});
    });
    keepalive->start(m_keepaliveSeconds * 1000 / 2);
    // No subscription within ten seconds of a new session: Twitch closes it.
    if (movedFrom.isEmpty())
        QTimer::singleShot(10000, socket, [this, socket, id] {
            if (m_twitch->subscriptionsOf(id.toStdString()).empty())
                socket->close(QWebSocketProtocol::CloseCode(4003), QStringLiteral("connection unused"));
        });
    if (m_closeAfterMs > 0)
        QTimer::singleShot(m_closeAfterMs, socket,
                           [socket] { socket->close(QWebSocketProtocol::CloseCode(4000)); });
    const QJsonObject session{{"id", id},
                              {"status", "connected"},
                              {"connected_at", now()},
                              {"keepalive_timeout_seconds", m_keepaliveSeconds},
                              {"reconnect_url", QJsonValue()}};
    send(socket, QStringLiteral("session_welcome"), {{"session", session}});
}

void LiveEventsStandIn::send(QWebSocket *socket, const QString &type, const QJsonObject &payload,
                             const QString &subscriptionType)
{
    QJsonObject metadata{{"message_id", QUuid::createUuid().toString(QUuid::WithoutBraces)},
                         {"message_type", type},
                         {"message_timestamp", now()}};
    if (!subscriptionType.isEmpty()) {
        metadata.insert("subscription_type", subscriptionType);
        metadata.insert("subscription_version", "1");
    }
    socket->sendTextMessage(compact({{"metadata", metadata}, {"payload", payload}}));
}

QList<QWebSocket *> LiveEventsStandIn::sessionsWith(const QString &type) const
{
    QList<QWebSocket *> found;
    for (QWebSocket *socket : m_sockets)
        if (m_twitch->subscriptionsOf(sessionOf(socket).toStdString()).count(type.toStdString()))
            found << socket;
    return found;
}

bool LiveEventsStandIn::notify(const QString &type, const QJsonObject &event)
{
    const QList<QWebSocket *> sessions = sessionsWith(type);
    for (QWebSocket *socket : sessions) {
        const QJsonObject transport{{"method", "websocket"}, {"session_id", sessionOf(socket)}};
        const QJsonObject subscription{
            {"type", type}, {"version", "1"}, {"status", "enabled"}, {"transport", transport}};
        send(socket, QStringLiteral("notification"), {{"subscription", subscription}, {"event", event}},
             type);
    }
    return !sessions.isEmpty();
}

QJsonObject LiveEventsStandIn::subscription(const QString &tier) const
{
    return {{"user_id", "1337"},
            {"user_login", "cool_user"},
            {"user_name", "Cool_User"},
            {"broadcaster_user_id", QString::fromStdString(m_twitch->user().id)},
            {"broadcaster_user_login", QString::fromStdString(m_twitch->user().login)},
            {"tier", tier},
            {"is_gift", false}};
}

void LiveEventsStandIn::requestReconnect()
{
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        const QJsonObject session{
            {"id", sessionOf(socket)},
            {"status", "reconnecting"},
            {"keepalive_timeout_seconds", QJsonValue()},
            {"reconnect_url", eventSubUrl() + QStringLiteral("?reconnect=") + sessionOf(socket)}};
        send(socket, QStringLiteral("session_reconnect"), {{"session", session}});
    }
}

void LiveEventsStandIn::closeAll()
{
    for (QWebSocket *socket : qAsConst(m_sockets))
        socket->close(QWebSocketProtocol::CloseCode(4000), QStringLiteral("internal server error"));
}

int LiveEventsStandIn::listeners(const QString &topic) const
{
    return int(std::count_if(m_sockets.begin(), m_sockets.end(),
                             [&](QWebSocket *s) { return listensTo(s, topic); }));
}

void LiveEventsStandIn::onPubSubText(QWebSocket *socket, const QString &text)
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
                 {"nonce", m_lastNonce},
                 {"error", valid ? QString() : QStringLiteral("ERR_BADAUTH")}}));
}

int LiveEventsStandIn::publish(const QString &topic, const QJsonObject &message)
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
