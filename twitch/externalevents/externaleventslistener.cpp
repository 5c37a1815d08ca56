#include "externaleventslistener.h"

#include "jsonobjectsplitter.h"

#include <QLoggingCategory>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <nlohmann/json.hpp>

Q_LOGGING_CATEGORY(lcExternalEvents, "glint.externalevents")

namespace VCam {

namespace {
constexpr qint64 kReadPiece = 16 * 1024;
constexpr int kSweepIntervalMs = 500;
} // namespace

ExternalEventsListener::ExternalEventsListener(QObject *parent)
    : ExternalEventsListener(kDefaultPort, Limits(), parent)
{}

ExternalEventsListener::ExternalEventsListener(quint16 port, Limits limits, QObject *parent)
    : QObject(parent), m_port(port), m_limits(limits), m_server(new QTcpServer(this)),
      m_sweep(new QTimer(this))
{
    // Connections are taken from the pending queue at once; the limit on
    // open connections is ours, so the server's own backlog stays small.
    m_server->setMaxPendingConnections(m_limits.maxConnections);
    connect(m_server, &QTcpServer::newConnection, this, &ExternalEventsListener::onNewConnection);
    m_sweep->setInterval(kSweepIntervalMs);
    connect(m_sweep, &QTimer::timeout, this, &ExternalEventsListener::onSweep);
}

ExternalEventsListener::~ExternalEventsListener()
{
    // The sockets are the server's children and die after this object's
    // members; they must not call back into it on the way.
    for (auto it = m_connections.cbegin(); it != m_connections.cend(); ++it) {
        it.key()->disconnect(this);
        it.key()->abort();
    }
    m_server->close();
}

bool ExternalEventsListener::startListen()
{
    if (m_server->isListening())
        return true;
    if (!m_server->listen(QHostAddress::LocalHost, m_port)) {
        qCCritical(lcExternalEvents).noquote()
            << "ExternalEventsListener::startListen failed" << m_server->errorString();
        return false;
    }
    qCInfo(lcExternalEvents) << "Listening for external events on 127.0.0.1 port" << m_server->serverPort();
    m_sweep->start();
    return true;
}

bool ExternalEventsListener::isListening() const
{
    return m_server->isListening();
}

quint16 ExternalEventsListener::port() const
{
    return m_server->isListening() ? m_server->serverPort() : m_port;
}

void ExternalEventsListener::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        if (m_connections.size() >= m_limits.maxConnections && !evictIdleConnection()) {
            logOnce(QStringLiteral("more than %1 connections at once").arg(m_limits.maxConnections));
            socket->abort();
            socket->deleteLater();
            continue;
        }
        accept(socket);
    }
}

void ExternalEventsListener::accept(QTcpSocket *socket)
{
    // Qt buffers no more than this ahead of our reads.
    socket->setReadBufferSize(kReadPiece * 4);
    Connection connection;
    connection.splitter = std::make_shared<JsonObjectSplitter>(m_limits.maxMessageBytes);
    connection.lastActivity.start();
    m_connections.insert(socket, connection);
    connect(socket, &QTcpSocket::readyRead, this, &ExternalEventsListener::onReadyRead);
    connect(socket, &QTcpSocket::disconnected, this, &ExternalEventsListener::onDisconnected);
}

// Makes room for a newcomer by closing the connection that has been silent
// longest, if one has been silent for at least a sweep interval: clients
// that connect and never send must not lock out those that do.
bool ExternalEventsListener::evictIdleConnection()
{
    QTcpSocket *idlest = nullptr;
    qint64 longest = kSweepIntervalMs;
    for (auto it = m_connections.cbegin(); it != m_connections.cend(); ++it) {
        const qint64 idle = it->lastActivity.elapsed();
        if (!it->messageStarted.isValid() && idle >= longest) {
            longest = idle;
            idlest = it.key();
        }
    }
    if (!idlest)
        return false;
    drop(idlest, QStringLiteral("connection closed to make room: it sent nothing"));
    return true;
}

void ExternalEventsListener::onReadyRead()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    auto it = m_connections.find(socket);
    if (it == m_connections.end())
        return;
    it->lastActivity.restart();
    QList<QByteArray> messages;
    char piece[kReadPiece];
    qint64 got;
    while ((got = socket->read(piece, sizeof piece)) > 0) {
        const auto status = it->splitter->feed(piece, got, messages);
        if (status == JsonObjectSplitter::Status::ObjectTooLarge) {
            drop(socket, QStringLiteral("message larger than %1 bytes").arg(m_limits.maxMessageBytes));
            return;
        }
    }
    if (it->splitter->skippedBytes() > 0)
        logOnce(QStringLiteral("text that is not a JSON object"));
    // The clock runs for the message still incomplete: one that began in
    // this read when others ended in it, else the one that was waiting.
    if (it->splitter->pendingBytes() == 0)
        it->messageStarted.invalidate();
    else if (!messages.isEmpty() || !it->messageStarted.isValid())
        it->messageStarted.start();
    for (const QByteArray &message : qAsConst(messages))
        handleMessage(message);
}

void ExternalEventsListener::handleMessage(const QByteArray &message)
{
    const auto json = nlohmann::json::parse(message.cbegin(), message.cend(), nullptr, false);
    if (json.is_discarded()) {
        logOnce(QStringLiteral("text that does not parse as JSON"));
        return;
    }
    const auto type = json.find("type");
    if (type == json.end() || !type->is_string()) {
        logOnce(QStringLiteral("a message whose \"type\" is not a string"));
        return;
    }
    const auto data = json.find("data");
    const std::string name = type->get<std::string>();
    const std::string payload = data == json.end() ? std::string() : data->dump();
    emit externalEventReceived(QByteArray::fromStdString(name), QByteArray::fromStdString(payload));
}

void ExternalEventsListener::onSweep()
{
    QList<QPair<QTcpSocket *, QString>> expired;
    for (auto it = m_connections.cbegin(); it != m_connections.cend(); ++it) {
        if (it->messageStarted.isValid() && it->messageStarted.elapsed() > m_limits.messageTimeoutMs)
            expired.append({it.key(), QStringLiteral("a message took longer than %1 ms to arrive")
                                          .arg(m_limits.messageTimeoutMs)});
        else if (it->lastActivity.elapsed() > m_limits.idleTimeoutMs)
            expired.append(
                {it.key(), QStringLiteral("a connection was silent for %1 ms").arg(m_limits.idleTimeoutMs)});
    }
    for (const auto &[socket, cause] : qAsConst(expired))
        drop(socket, cause);
}

void ExternalEventsListener::onDisconnected()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    auto it = m_connections.find(socket);
    if (it == m_connections.end())
        return;
    m_connections.erase(it);
    socket->deleteLater();
}

void ExternalEventsListener::drop(QTcpSocket *socket, const QString &cause)
{
    logOnce(cause);
    m_connections.remove(socket);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
}

// Hostile or broken clients repeat themselves; the log says each kind of
// trouble once.
void ExternalEventsListener::logOnce(const QString &cause)
{
    if (m_loggedCauses.contains(cause))
        return;
    m_loggedCauses.insert(cause);
    qCWarning(lcExternalEvents).noquote() << "External events: dropped" << cause;
}

} // namespace VCam
