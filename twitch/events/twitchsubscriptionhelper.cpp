#include "twitchsubscriptionhelper.h"

#include "jsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <glintdeployment.h>

Q_LOGGING_CATEGORY(lcTwitchPubSub, "glint.twitch.pubsub")

namespace VCam {

namespace {

QJsonObject parseObject(const QString &text, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (!document.isObject())
        *error = document.isNull() ? parseError.errorString() : QStringLiteral("not a JSON object");
    return document.object();
}

} // namespace

TwitchSubscriptionHelper::TwitchSubscriptionHelper(QObject *parent)
    : QObject(parent), m_socket(QString(), QWebSocketProtocol::Version13, this),
      m_url(QUrl(QString::fromStdString(glint::deployment(glint::kTwitchPubSubUrl))))
{
    qRegisterMetaType<SubscribeEvent>("VCam::SubscribeEvent");
    qRegisterMetaType<BitsEvent>("VCam::BitsEvent");
    m_socket.setMaxAllowedIncomingMessageSize(kMaxSocketMessageBytes);
    m_socket.setMaxAllowedIncomingFrameSize(kMaxSocketMessageBytes);
    m_reconnectTimer.setSingleShot(true);
    m_pongWaitTimer.setSingleShot(true);
    connect(&m_socket, &QWebSocket::connected, this, &TwitchSubscriptionHelper::doSubscribe);
    connect(&m_socket, &QWebSocket::textMessageReceived, this, &TwitchSubscriptionHelper::handleTextMessage);
    connect(&m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            &TwitchSubscriptionHelper::handleWebSocketError);
    connect(&m_socket, &QWebSocket::disconnected, this, [this] {
        if (!m_closing)
            handleDisconnected();
    });
    connect(&m_reconnectTimer, &QTimer::timeout, this, &TwitchSubscriptionHelper::connectToPubSub);
    connect(&m_pongWaitTimer, &QTimer::timeout, this, &TwitchSubscriptionHelper::connectToPubSub);
    connect(&m_pingTimer, &QTimer::timeout, this, &TwitchSubscriptionHelper::sendPing);
}

// The socket goes last among the members; what it reports while it closes
// must not reach the timers that are already gone.
TwitchSubscriptionHelper::~TwitchSubscriptionHelper()
{
    m_socket.disconnect(this);
    m_socket.abort();
}

void TwitchSubscriptionHelper::setPingIntervals(int pingMs, int pongWaitMs)
{
    m_pingIntervalMs = pingMs;
    m_pongWaitMs = pongWaitMs;
}

void TwitchSubscriptionHelper::setAccessToken(const QString &token)
{
    m_accessToken = token;
    connectWhenReady();
}

void TwitchSubscriptionHelper::setTwitchUserID(const QString &userId)
{
    m_twitchUserId = userId;
    m_topics.clear();
    m_topics.insert(QStringLiteral("channel-subscribe-events-v1.") + userId,
                    &TwitchSubscriptionHelper::handleSubscription);
    m_topics.insert(QStringLiteral("channel-bits-events-v1.") + userId,
                    &TwitchSubscriptionHelper::handleBits);
    connectWhenReady();
}

void TwitchSubscriptionHelper::connectWhenReady()
{
    if (!m_accessToken.isEmpty() && !m_twitchUserId.isEmpty())
        connectToPubSub();
}

void TwitchSubscriptionHelper::connectToPubSub()
{
    m_nonceRetries = 0;
    if (m_socket.state() != QAbstractSocket::UnconnectedState) {
        m_closing = true;
        m_socket.abort();
    }
    m_closing = false;
    m_socket.open(m_url);
    m_pongWaitTimer.stop();
    m_pingTimer.start(m_pingIntervalMs);
}

void TwitchSubscriptionHelper::stop()
{
    m_reconnectTimer.stop();
    m_pingTimer.stop();
    m_pongWaitTimer.stop();
    m_closing = true;
    m_socket.abort();
    m_closing = false;
    m_accessToken.clear();
    m_twitchUserId.clear();
    m_topics.clear();
}

void TwitchSubscriptionHelper::doSubscribe()
{
    qCInfo(lcTwitchPubSub) << "Subscribe to Twitch PubSub";
    m_pongWaitTimer.stop();
    m_reconnectTimer.stop();
    m_reconnectDelay = 2;
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    m_nonce.clear();
    for (int i = 0; i < 20; ++i)
        m_nonce += QLatin1Char(alphabet[QRandomGenerator::global()->bounded(64)]);
    QJsonArray topics;
    for (auto it = m_topics.cbegin(); it != m_topics.cend(); ++it)
        topics.append(it.key());
    const QJsonObject listen{{"type", "LISTEN"},
                             {"nonce", m_nonce},
                             {"data", QJsonObject{{"auth_token", m_accessToken}, {"topics", topics}}}};
    m_socket.sendTextMessage(QString::fromUtf8(QJsonDocument(listen).toJson(QJsonDocument::Compact)));
}

void TwitchSubscriptionHelper::sendPing()
{
    m_socket.sendTextMessage(QStringLiteral("{\"type\":\"PING\"}"));
    m_pongWaitTimer.start(m_pongWaitMs);
}

void TwitchSubscriptionHelper::handleTextMessage(const QString &message)
{
    const auto drop = [](const QString &what, const QString &error) {
        qCWarning(lcTwitchPubSub).noquote()
            << QStringLiteral("Can't handle twitch message (%1): %2").arg(what, error);
    };
    if (message.size() > kMaxMessageBytes)
        return drop(QStringLiteral("frame"), QStringLiteral("%1 bytes is too large").arg(message.size()));
    QString error;
    const QJsonObject object = parseObject(message, &error);
    if (!error.isEmpty())
        return drop(QStringLiteral("frame"), error);
    JsonFields fields(object);
    const QString type = fields.text("type");
    if (!fields.ok())
        return drop(QStringLiteral("frame"), fields.error());
    if (type == QLatin1String("PONG"))
        m_pongWaitTimer.stop();
    else if (type == QLatin1String("RECONNECT"))
        connectToPubSub();
    else if (type == QLatin1String("RESPONSE"))
        handleResponse(object);
    else if (type == QLatin1String("MESSAGE"))
        handleMessage(object);
}

void TwitchSubscriptionHelper::handleResponse(const QJsonObject &response)
{
    const QString error = response.value(QLatin1String("error")).toString();
    const QString nonce = response.value(QLatin1String("nonce")).toString();
    if (error == QLatin1String("ERR_BADAUTH"))
        emit accessTokenNotValid();
    else if (!error.isEmpty())
        qCWarning(lcTwitchPubSub).noquote() << "Twitch response error:" << error;
    if (nonce.isEmpty())
        return;
    if (nonce == m_nonce) {
        m_nonceRetries = 0;
        return;
    }
    if (++m_nonceRetries <= kMaxNonceRetries) {
        doSubscribe();
        return;
    }
    qCWarning(lcTwitchPubSub) << "Twitch response invalid nonce. Exceeded retry limit";
    m_closing = true;
    m_pingTimer.stop();
    m_pongWaitTimer.stop();
    m_socket.close(QWebSocketProtocol::CloseCodeNormal, QString());
}

void TwitchSubscriptionHelper::handleMessage(const QJsonObject &message)
{
    JsonFields outer(message);
    JsonFields data(outer.object("data"));
    const QString topic = data.text("topic");
    const QString text = data.text("message");
    QString error = !outer.ok() ? outer.error() : data.error();
    const auto parser = m_topics.constFind(topic);
    if (error.isEmpty() && parser == m_topics.cend())
        error = QStringLiteral("unknown topic");
    if (error.isEmpty())
        (this->*parser.value())(text, &error);
    if (!error.isEmpty())
        qCWarning(lcTwitchPubSub).noquote()
            << QStringLiteral("Can't handle twitch message (%1): %2")
                   .arg(topic.isEmpty() ? QStringLiteral("MESSAGE") : topic, error);
}

bool TwitchSubscriptionHelper::parseSubscription(const QString &message, SubscribeEvent *event,
                                                 QString *error)
{
    const QJsonObject object = parseObject(message, error);
    return error->isEmpty() && SubscribeEvent::fromJson(object, *event, error);
}

bool TwitchSubscriptionHelper::parseBits(const QString &message, BitsEvent *event, QString *error)
{
    const QJsonObject object = parseObject(message, error);
    return error->isEmpty() && BitsEvent::fromJson(object, *event, error);
}

bool TwitchSubscriptionHelper::handleSubscription(const QString &message, QString *error)
{
    SubscribeEvent event;
    if (!parseSubscription(message, &event, error))
        return false;
    emit subscriptionReceived(event);
    return true;
}

bool TwitchSubscriptionHelper::handleBits(const QString &message, QString *error)
{
    BitsEvent event;
    if (!parseBits(message, &event, error))
        return false;
    emit bitsReceived(event);
    return true;
}

void TwitchSubscriptionHelper::handleDisconnected()
{
    qCCritical(lcTwitchPubSub) << "SubscriptionService::handleDisconnected: Try to reconnect";
    startReconnectTimer();
}

void TwitchSubscriptionHelper::handleWebSocketError(QAbstractSocket::SocketError error)
{
    qCCritical(lcTwitchPubSub) << "WebSocket error occured" << error;
    if (error == QAbstractSocket::ConnectionRefusedError)
        startReconnectTimer();
}

void TwitchSubscriptionHelper::startReconnectTimer()
{
    m_reconnectDelay += 2;
    m_reconnectTimer.start(m_reconnectDelay);
}

} // namespace VCam
