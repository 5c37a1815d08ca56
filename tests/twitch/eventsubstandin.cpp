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

QString messageId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

EventSubStandIn::EventSubStandIn(TwitchStandIn *twitch, QObject *parent)
    : QObject(parent), m_twitch(twitch),
      m_server(QStringLiteral("eventsub stand-in"), QWebSocketServer::NonSecureMode)
{
    connect(&m_server, &QWebSocketServer::newConnection, this, &EventSubStandIn::onConnection);
}

EventSubStandIn::~EventSubStandIn()
{
    for (Session *session : qAsConst(m_sessions)) {
        if (session->socket) {
            session->socket->disconnect(this);
            delete session->socket;
        }
        delete session;
    }
}

bool EventSubStandIn::start()
{
    return m_server.listen(QHostAddress::LocalHost);
}

QString EventSubStandIn::url() const
{
    return QStringLiteral("ws://127.0.0.1:%1/ws").arg(m_server.serverPort());
}

void EventSubStandIn::onConnection()
{
    while (QWebSocket *socket = m_server.nextPendingConnection()) {
        ++m_connections;
        socket->setParent(this);
        const QString movedFrom = QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("reconnect"));
        welcome(socket, movedFrom);
    }
}

void EventSubStandIn::welcome(QWebSocket *socket, const QString &movedFrom)
{
    auto *session = new Session;
    session->socket = socket;
    session->id =
        QStringLiteral("AQoQ%1").arg(++m_counter) + QUuid::createUuid().toString(QUuid::Id128).left(12);
    m_lastSessionId = session->id;
    if (movedFrom.isEmpty())
        m_twitch->openSession(session->id.toStdString());
    else
        m_twitch->moveSession(movedFrom.toStdString(), session->id.toStdString());
    m_sessions.append(session);

    session->keepalive = new QTimer(socket);
    connect(session->keepalive, &QTimer::timeout, socket, [this, socket] {
        if (!m_keepalivesPaused)
            send(socket, QStringLiteral("session_keepalive"), {});
    });
    session->keepalive->start(m_keepaliveSeconds * 1000 / 2);
    connect(socket, &QWebSocket::disconnected, this, [this, session] {
        m_twitch->closeSession(session->id.toStdString());
        m_sessions.removeOne(session);
        if (session->socket)
            session->socket->deleteLater();
        delete session;
    });
    // No subscription within ten seconds: Twitch closes the connection.
    if (movedFrom.isEmpty())
        QTimer::singleShot(10000, socket, [this, socket, id = session->id] {
            if (m_twitch->subscriptionsOf(id.toStdString()).empty())
                socket->close(QWebSocketProtocol::CloseCode(4003), QStringLiteral("connection unused"));
        });
    if (m_closeAfterMs > 0)
        QTimer::singleShot(m_closeAfterMs, socket, [socket] {
            socket->close(QWebSocketProtocol::CloseCode(4000), QStringLiteral("internal server error"));
        });

    const QJsonObject state{{"id", session->id},
                            {"status", "connected"},
                            {"connected_at", now()},
                            {"keepalive_timeout_seconds", m_keepaliveSeconds},
                            {"reconnect_url", QJsonValue()}};
    send(socket, QStringLiteral("session_welcome"), {{"session", state}});
}

void EventSubStandIn::send(QWebSocket *socket, const QString &type, const QJsonObject &payload,
                           const QJsonObject &extraMetadata)
{
    QJsonObject metadata{{"message_id", messageId()}, {"message_type", type}, {"message_timestamp", now()}};
    for (auto it = extraMetadata.begin(); it != extraMetadata.end(); ++it)
        metadata.insert(it.key(), it.value());
    const QJsonObject message{{"metadata", metadata}, {"payload", payload}};
    socket->sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
}

EventSubStandIn::Session *EventSubStandIn::sessionWith(const QString &subscriptionType)
{
    for (Session *session : qAsConst(m_sessions)) {
        if (session->socket &&
            m_twitch->subscriptionsOf(session->id.toStdString()).count(subscriptionType.toStdString()))
            return session;
    }
    return nullptr;
}

bool EventSubStandIn::notify(const QString &type, const QJsonObject &event)
{
    bool sent = false;
    for (Session *session : qAsConst(m_sessions)) {
        if (!session->socket ||
            !m_twitch->subscriptionsOf(session->id.toStdString()).count(type.toStdString()))
            continue;
        const QJsonObject subscription{
            {"id", messageId()},
            {"status", "enabled"},
            {"type", type},
            {"version", "1"},
            {"cost", 0},
            {"condition", QJsonObject{{"broadcaster_user_id", QString::fromStdString(m_twitch->user().id)}}},
            {"transport", QJsonObject{{"method", "websocket"}, {"session_id", session->id}}},
            {"created_at", now()}};
        send(session->socket, QStringLiteral("notification"),
             {{"subscription", subscription}, {"event", event}},
             {{"subscription_type", type}, {"subscription_version", "1"}});
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
            {"broadcaster_user_name", QString::fromStdString(m_twitch->user().displayName)},
            {"tier", tier},
            {"is_gift", false}};
}

void EventSubStandIn::revoke(const QString &type, const QString &status)
{
    Session *session = sessionWith(type);
    if (!session)
        return;
    const QJsonObject subscription{{"id", messageId()}, {"status", status}, {"type", type},
                                   {"version", "1"},    {"cost", 0},        {"created_at", now()}};
    send(session->socket, QStringLiteral("revocation"), {{"subscription", subscription}},
         {{"subscription_type", type}, {"subscription_version", "1"}});
}

void EventSubStandIn::sendRaw(const QString &text)
{
    for (Session *session : qAsConst(m_sessions)) {
        if (session->socket)
            session->socket->sendTextMessage(text);
    }
}

void EventSubStandIn::requestReconnect()
{
    for (Session *session : qAsConst(m_sessions)) {
        if (!session->socket)
            continue;
        const QJsonObject state{{"id", session->id},
                                {"status", "reconnecting"},
                                {"connected_at", now()},
                                {"keepalive_timeout_seconds", QJsonValue()},
                                {"reconnect_url", url() + QStringLiteral("?reconnect=") + session->id}};
        send(session->socket, QStringLiteral("session_reconnect"), {{"session", state}});
    }
}

void EventSubStandIn::closeAll()
{
    for (Session *session : qAsConst(m_sessions)) {
        if (session->socket)
            session->socket->close(QWebSocketProtocol::CloseCode(4000),
                                   QStringLiteral("internal server error"));
    }
}
