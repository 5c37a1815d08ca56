#include "eventsubstandin.h"

#include "twitchstandin.h"

#include <QDateTime>
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

QString sessionOf(QWebSocket *socket)
{
    return socket->property("session").toString();
}

} // namespace

EventSubStandIn::EventSubStandIn(TwitchStandIn *twitch, QObject *parent)
    : QObject(parent), m_twitch(twitch), m_server(QStringLiteral("eventsub"), QWebSocketServer::NonSecureMode)
{
    connect(&m_server, &QWebSocketServer::newConnection, this, [this] {
        while (QWebSocket *socket = m_server.nextPendingConnection()) {
            ++m_connections;
            socket->setParent(this);
            welcome(socket, QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("reconnect")));
        }
    });
}

EventSubStandIn::~EventSubStandIn()
{
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        socket->disconnect(this);
        delete socket;
    }
}

void EventSubStandIn::welcome(QWebSocket *socket, const QString &movedFrom)
{
    const QString id = QUuid::createUuid().toString(QUuid::Id128).left(24);
    socket->setProperty("session", id);
    m_lastSessionId = id;
    m_twitch->moveSession(movedFrom.toStdString(), id.toStdString());
    m_sockets.append(socket);
    connect(socket, &QWebSocket::disconnected, this, [this, socket, id] {
        m_twitch->moveSession(id.toStdString(), std::string());
        m_sockets.removeOne(socket);
        socket->deleteLater();
    });

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

void EventSubStandIn::send(QWebSocket *socket, const QString &type, const QJsonObject &payload,
                           const QString &subscriptionType)
{
    QJsonObject metadata{{"message_id", QUuid::createUuid().toString(QUuid::WithoutBraces)},
                         {"message_type", type},
                         {"message_timestamp", now()}};
    if (!subscriptionType.isEmpty()) {
        metadata.insert("subscription_type", subscriptionType);
        metadata.insert("subscription_version", "1");
    }
    const QJsonObject message{{"metadata", metadata}, {"payload", payload}};
    socket->sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
}

bool EventSubStandIn::subscribed(QWebSocket *socket, const QString &type) const
{
    return m_twitch->subscriptionsOf(sessionOf(socket).toStdString()).count(type.toStdString()) > 0;
}

bool EventSubStandIn::notify(const QString &type, const QJsonObject &event)
{
    bool sent = false;
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        if (!subscribed(socket, type))
            continue;
        const QJsonObject subscription{
            {"type", type},
            {"version", "1"},
            {"status", "enabled"},
            {"transport", QJsonObject{{"method", "websocket"}, {"session_id", sessionOf(socket)}}}};
        send(socket, QStringLiteral("notification"), {{"subscription", subscription}, {"event", event}},
             type);
        sent = true;
    }
    return sent;
}

QJsonObject EventSubStandIn::subscription(const QString &tier) const
{
    return {{"user_id", "1337"},
            {"user_login", "cool_user"},
            {"user_name", "Cool_User"},
            {"broadcaster_user_id", QString::fromStdString(m_twitch->user().id)},
            {"broadcaster_user_login", QString::fromStdString(m_twitch->user().login)},
            {"tier", tier},
            {"is_gift", false}};
}

void EventSubStandIn::sendRaw(const QString &text)
{
    for (QWebSocket *socket : qAsConst(m_sockets))
        socket->sendTextMessage(text);
}

void EventSubStandIn::requestReconnect()
{
    for (QWebSocket *socket : qAsConst(m_sockets)) {
        const QJsonObject session{
            {"id", sessionOf(socket)},
            {"status", "reconnecting"},
            {"keepalive_timeout_seconds", QJsonValue()},
            {"reconnect_url", url() + QStringLiteral("?reconnect=") + sessionOf(socket)}};
        send(socket, QStringLiteral("session_reconnect"), {{"session", session}});
    }
}

void EventSubStandIn::closeAll()
{
    for (QWebSocket *socket : qAsConst(m_sockets))
        socket->close(QWebSocketProtocol::CloseCode(4000), QStringLiteral("internal server error"));
}
