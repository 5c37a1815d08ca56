#include "twitcheventsubhelper.h"

#include "jsonfields.h"

#include <QJsonDocument>
#include <QWebSocket>
#include <glintdeployment.h>
#include <networkmanager.h>

Q_LOGGING_CATEGORY(lcTwitchEventSub, "glint.twitch.eventsub")

namespace VCam {

namespace {

const char *const kSubscriptionTypes[] = {"channel.subscribe", "channel.subscription.message",
                                          "channel.cheer"};
constexpr int kRecentIds = 64;

void warnDropped(const QString &what, const QString &error)
{
    qCWarning(lcTwitchEventSub).noquote()
        << QStringLiteral("Can't handle twitch message (%1): %2").arg(what, error);
}

QString tierName(const QString &tier)
{
    if (tier == QLatin1String("2000"))
        return QStringLiteral("Tier 2");
    if (tier == QLatin1String("3000"))
        return QStringLiteral("Tier 3");
    return QStringLiteral("Tier 1");
}

} // namespace

TwitchEventSubHelper::TwitchEventSubHelper(NetworkManager *network, QObject *parent)
    : QObject(parent), m_network(network),
      m_url(QUrl(QString::fromStdString(glint::deployment(glint::kTwitchEventSubUrl))))
{
    qRegisterMetaType<SubscribeEvent>("VCam::SubscribeEvent");
    qRegisterMetaType<BitsEvent>("VCam::BitsEvent");
    m_reconnectTimer.setSingleShot(true);
    m_keepaliveTimer.setSingleShot(true);
    connect(&m_reconnectTimer, &QTimer::timeout, this, &TwitchEventSubHelper::start);
    connect(&m_keepaliveTimer, &QTimer::timeout, this, &TwitchEventSubHelper::onKeepaliveMissed);
}

TwitchEventSubHelper::~TwitchEventSubHelper()
{
    closeSocket(m_next);
    closeSocket(m_socket);
}

QStringList TwitchEventSubHelper::activeSubscriptions() const
{
    QStringList types = m_created.values();
    types.sort();
    return types;
}

void TwitchEventSubHelper::setAccessToken(const QString &token)
{
    m_token = token;
    if (m_socket && !m_sessionId.isEmpty())
        createSubscriptions(); // those a refused token could not create
    else if (!m_socket && !m_reconnectTimer.isActive())
        start();
}

void TwitchEventSubHelper::setTwitchUserID(const QString &userId)
{
    if (userId == m_userId && m_socket)
        return;
    const bool otherUser = !m_userId.isEmpty() && userId != m_userId;
    m_userId = userId;
    if (otherUser) {
        // Subscriptions name the broadcaster: another user needs a new session.
        closeSocket(m_next);
        closeSocket(m_socket);
    }
    start();
}

void TwitchEventSubHelper::stop()
{
    m_reconnectTimer.stop();
    m_keepaliveTimer.stop();
    closeSocket(m_next);
    closeSocket(m_socket);
    m_token.clear();
    m_userId.clear();
    m_reportedToken.clear();
    m_refusedTokens = 0;
    m_reconnectDelayMs = kFirstReconnectDelayMs;
}

void TwitchEventSubHelper::start()
{
    if (m_token.isEmpty() || m_userId.isEmpty() || m_socket)
        return;
    m_reconnectTimer.stop();
    open(m_url, false);
}

void TwitchEventSubHelper::open(const QUrl &url, bool moving)
{
    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setMaxAllowedIncomingMessageSize(kMaxSocketMessageBytes);
    socket->setMaxAllowedIncomingFrameSize(kMaxSocketMessageBytes);
    connect(socket, &QWebSocket::textMessageReceived, this,
            [this, socket](const QString &text) { onText(socket, text); });
    connect(socket, &QWebSocket::binaryMessageReceived, this, [](const QByteArray &data) {
        warnDropped(QStringLiteral("binary"), QString::number(data.size()));
    });
    connect(socket, &QWebSocket::disconnected, this, [this, socket] { onDisconnected(socket); });
    if (moving) {
        closeSocket(m_next);
        m_next = socket;
    } else {
        m_socket = socket;
        m_moving = false;
        m_sessionId.clear();
        m_created.clear();
        m_pending.clear();
        // A server that never welcomes us counts as a dropped session.
        m_keepaliveMs = 10000;
        restartKeepalive();
    }
    ++m_attempts;
    qCInfo(lcTwitchEventSub).noquote() << "Connect to Twitch EventSub" << url.toString();
    socket->open(url);
}

void TwitchEventSubHelper::closeSocket(QWebSocket *&socket)
{
    if (!socket)
        return;
    QWebSocket *closing = socket;
    socket = nullptr;
    closing->disconnect(this);
    closing->abort();
    closing->deleteLater();
    if (!m_socket) {
        m_sessionId.clear();
        m_created.clear();
        m_pending.clear();
        m_keepaliveTimer.stop();
    }
}

void TwitchEventSubHelper::restartKeepalive()
{
    m_keepaliveTimer.start(m_keepaliveMs + kKeepaliveGraceMs);
}

void TwitchEventSubHelper::onKeepaliveMissed()
{
    qCWarning(lcTwitchEventSub) << "No message from Twitch EventSub within the keepalive time: reconnecting";
    closeSocket(m_next);
    closeSocket(m_socket);
    scheduleReconnect();
}

void TwitchEventSubHelper::onDisconnected(QWebSocket *socket)
{
    if (socket == m_next) {
        qCWarning(lcTwitchEventSub) << "The EventSub reconnect address closed:" << socket->closeCode()
                                    << socket->closeReason();
        closeSocket(m_next);
        return;
    }
    if (socket != m_socket)
        return;
    qCWarning(lcTwitchEventSub).noquote()
        << QStringLiteral("Twitch EventSub closed (%1 %2): try to reconnect")
               .arg(socket->closeCode())
               .arg(socket->closeReason());
    if (m_next) {
        // The old session ended before the new one welcomed us; the new one
        // carries the subscriptions.
        m_socket = m_next;
        m_next = nullptr;
        m_moving = true;
        socket->disconnect(this);
        socket->deleteLater();
        restartKeepalive();
        return;
    }
    closeSocket(m_socket);
    scheduleReconnect();
}

void TwitchEventSubHelper::scheduleReconnect()
{
    if (m_token.isEmpty() || m_userId.isEmpty())
        return;
    if (m_sessionAge.isValid() && m_sessionAge.elapsed() >= kStableSessionMs)
        m_reconnectDelayMs = kFirstReconnectDelayMs;
    m_sessionAge.invalidate();
    m_reconnectTimer.start(m_reconnectDelayMs);
    m_reconnectDelayMs = qMin(m_reconnectDelayMs * 2, kMaxReconnectDelayMs);
}

void TwitchEventSubHelper::onText(QWebSocket *socket, const QString &text)
{
    if (socket == m_socket)
        restartKeepalive();
    if (text.size() > kMaxMessageBytes) {
        warnDropped(QStringLiteral("frame"), QStringLiteral("%1 bytes is too large").arg(text.size()));
        return;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (!document.isObject()) {
        warnDropped(QStringLiteral("frame"),
                    document.isNull() ? parseError.errorString() : QStringLiteral("not an object"));
        return;
    }
    JsonFields message(document.object());
    const QJsonObject metadata = message.object("metadata");
    const QJsonObject payload = message.object("payload");
    JsonFields meta(metadata);
    const QString type = meta.text("message_type");
    const QString id = meta.text("message_id");
    if (!message.ok() || !meta.ok() || type.isEmpty()) {
        warnDropped(QStringLiteral("frame"),
                    message.ok() ? (meta.ok() ? QStringLiteral("no message type") : meta.error())
                                 : message.error());
        return;
    }
    if (!id.isEmpty() && seenBefore(id))
        return; // Twitch may send a message twice
    if (type == QLatin1String("session_keepalive"))
        return;
    JsonFields body(payload);
    const QJsonObject session = body.object("session");
    if (!body.ok()) {
        warnDropped(type, body.error());
        return;
    }
    if (type == QLatin1String("session_welcome"))
        onWelcome(socket, session);
    else if (type == QLatin1String("session_reconnect"))
        onReconnectRequested(session);
    else if (type == QLatin1String("notification"))
        onNotification(metadata, payload);
    else if (type == QLatin1String("revocation"))
        onRevocation(payload);
    else
        warnDropped(type, QStringLiteral("unknown message type"));
}

bool TwitchEventSubHelper::seenBefore(const QString &messageId)
{
    if (m_recentIds.contains(messageId))
        return true;
    m_recentIds.append(messageId);
    if (m_recentIds.size() > kRecentIds)
        m_recentIds.removeFirst();
    return false;
}

void TwitchEventSubHelper::onWelcome(QWebSocket *socket, const QJsonObject &session)
{
    JsonFields f(session);
    const QString id = f.text("id");
    const qint64 keepalive = f.integer("keepalive_timeout_seconds");
    if (!f.ok() || id.isEmpty()) {
        warnDropped(QStringLiteral("session_welcome"), f.ok() ? QStringLiteral("no session id") : f.error());
        return;
    }
    if (keepalive > 0)
        m_keepaliveMs = static_cast<int>(qBound<qint64>(1, keepalive, 600) * 1000);
    if (socket == m_next || (m_moving && socket == m_socket)) {
        // Moved: the subscriptions came along, the old socket can go.
        qCInfo(lcTwitchEventSub) << "Twitch EventSub session moved";
        QWebSocket *old = m_moving ? nullptr : m_socket;
        m_socket = socket;
        m_next = nullptr;
        m_moving = false;
        if (old) {
            old->disconnect(this);
            old->close();
            old->deleteLater();
        }
        m_sessionId = id;
        restartKeepalive();
        emit sessionWelcomed(id);
        return;
    }
    if (socket != m_socket || !m_sessionId.isEmpty())
        return;
    qCInfo(lcTwitchEventSub) << "Subscribe to Twitch EventSub";
    m_sessionId = id;
    m_sessionAge.start();
    restartKeepalive();
    emit sessionWelcomed(id);
    createSubscriptions();
}

void TwitchEventSubHelper::onReconnectRequested(const QJsonObject &session)
{
    JsonFields f(session);
    const QUrl target(f.text("reconnect_url"));
    // Only a move within the service we already talk to.
    const bool sameService = target.isValid() && target.scheme() == m_url.scheme() &&
                             target.host().compare(m_url.host(), Qt::CaseInsensitive) == 0;
    if (!f.ok() || !sameService) {
        warnDropped(QStringLiteral("session_reconnect"),
                    f.ok() ? QStringLiteral("reconnect address %1 refused").arg(target.toString())
                           : f.error());
        return;
    }
    open(target, true);
}

void TwitchEventSubHelper::onNotification(const QJsonObject &metadata, const QJsonObject &payload)
{
    JsonFields meta(metadata);
    JsonFields body(payload);
    const QJsonObject subscription = body.object("subscription");
    const QJsonObject event = body.object("event");
    JsonFields sub(subscription);
    QString type = meta.text("subscription_type");
    if (type.isEmpty())
        type = sub.text("type");
    const QString time = meta.text("message_timestamp");
    const QString messageId = meta.text("message_id");
    JsonFields e(event);
    const QString login = e.text("user_login");
    const QString name = e.text("user_name");
    const QString userId = e.text("user_id");
    const QString channel = e.text("broadcaster_user_login");
    const QString channelId = e.text("broadcaster_user_id");
    if (!meta.ok() || !body.ok() || !sub.ok()) {
        warnDropped(type, !meta.ok() ? meta.error() : (!body.ok() ? body.error() : sub.error()));
        return;
    }
    if (type == QLatin1String("channel.subscribe") || type == QLatin1String("channel.subscription.message")) {
        SubscribeEvent s;
        s.userName = login;
        s.displayName = name;
        s.channelName = channel;
        s.userId = userId;
        s.channelId = channelId;
        s.time = time;
        s.subPlan = e.text("tier");
        s.subPlanName = tierName(s.subPlan);
        if (type == QLatin1String("channel.subscribe")) {
            // A gifted subscription keeps the context it always had.
            s.context = e.boolean("is_gift") ? QStringLiteral("subgift") : QStringLiteral("sub");
            s.months = 1;
        } else {
            s.context = QStringLiteral("resub");
            s.months = static_cast<int>(qBound<qint64>(0, e.integer("cumulative_months"), 100000));
        }
        if (!e.ok() || s.subPlan.isEmpty()) {
            warnDropped(type, e.ok() ? QStringLiteral("no tier") : e.error());
            return;
        }
        emit subscriptionReceived(s);
    } else if (type == QLatin1String("channel.cheer")) {
        BitsEvent b;
        b.userName = e.boolean("is_anonymous") ? QString() : login;
        b.channelName = channel;
        b.userId = userId;
        b.channelId = channelId;
        b.time = time;
        b.chatMessage = e.text("message");
        b.bitsUsed = e.integer("bits");
        b.context = QStringLiteral("cheer");
        b.version = QStringLiteral("1.0");
        b.messageType = QStringLiteral("bits_event");
        b.messageId = messageId;
        if (!e.ok() || b.bitsUsed <= 0) {
            warnDropped(type, e.ok() ? QStringLiteral("no bits") : e.error());
            return;
        }
        emit bitsReceived(b);
    } else {
        warnDropped(type.isEmpty() ? QStringLiteral("notification") : type,
                    QStringLiteral("unknown subscription type"));
    }
}

void TwitchEventSubHelper::onRevocation(const QJsonObject &payload)
{
    JsonFields body(payload);
    JsonFields sub(body.object("subscription"));
    const QString type = sub.text("type");
    const QString status = sub.text("status");
    if (!body.ok() || !sub.ok() || type.isEmpty()) {
        warnDropped(QStringLiteral("revocation"), !body.ok() ? body.error() : sub.error());
        return;
    }
    qCWarning(lcTwitchEventSub).noquote()
        << QStringLiteral("Twitch revoked the %1 subscription: %2").arg(type, status);
    m_created.remove(type);
    emit subscriptionRevoked(type, status);
}

void TwitchEventSubHelper::createSubscriptions()
{
    for (const char *type : kSubscriptionTypes) {
        const QString name = QLatin1String(type);
        if (!m_created.contains(name) && !m_pending.contains(name))
            createSubscription(name);
    }
}

void TwitchEventSubHelper::createSubscription(const QString &type)
{
    const nlohmann::json body = {
        {"type", type.toStdString()},
        {"version", "1"},
        {"condition", {{"broadcaster_user_id", m_userId.toStdString()}}},
        {"transport", {{"method", "websocket"}, {"session_id", m_sessionId.toStdString()}}}};
    m_pending.insert(type);
    const QString session = m_sessionId;
    m_network->postHelix(QStringLiteral("eventsub/subscriptions"), body,
                         [this, type, session](int status, const QByteArray &answer, const QString &failure) {
                             onCreateAnswer(type, session, status, answer, failure);
                         });
}

void TwitchEventSubHelper::onCreateAnswer(const QString &type, const QString &session, int status,
                                          const QByteArray &body, const QString &failure)
{
    if (session != m_sessionId)
        return; // an answer for a session that is gone
    m_pending.remove(type);
    if (status == 202 || status == 409) { // created, or it already exists for this session
        m_created.insert(type);
        m_refusedTokens = 0;
        return;
    }
    if (status == 401) {
        // One refresh per refused token, and no more than two in a row: a
        // fresh token refused again is reported once more and left there.
        if (m_reportedToken != m_token && m_refusedTokens < 2) {
            m_reportedToken = m_token;
            ++m_refusedTokens;
            qCWarning(lcTwitchEventSub) << "Twitch refused the access token for EventSub";
            emit accessTokenNotValid();
        }
        return;
    }
    qCWarning(lcTwitchEventSub).noquote()
        << QStringLiteral("Can't create the EventSub subscription %1: %2")
               .arg(type,
                    failure.isEmpty()
                        ? QStringLiteral("status %1 %2").arg(status).arg(QString::fromUtf8(body.left(200)))
                        : failure);
}

} // namespace VCam
