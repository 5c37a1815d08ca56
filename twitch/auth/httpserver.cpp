#include "httpserver.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

Q_LOGGING_CATEGORY(lcHttpServer, "glint.twitch.redirect")

namespace VCam {

namespace {

const char *const kBufferProperty = "glintRequest";
const char *const kHandledProperty = "glintHandled";

} // namespace

HttpServer::HttpServer(WebResources resources, QObject *parent)
    : QObject(parent), m_server(new QTcpServer(this)), m_resources(std::move(resources))
{
    m_server->setMaxPendingConnections(kMaxConnections);
    connect(m_server, &QTcpServer::newConnection, this, &HttpServer::onNewConnection);
    m_lingerTimer.setSingleShot(true);
    connect(&m_lingerTimer, &QTimer::timeout, this, &HttpServer::stopListening);
}

HttpServer::~HttpServer()
{
    m_parked.clear();
}

bool HttpServer::isListening() const
{
    return m_server->isListening();
}

bool HttpServer::startListen()
{
    m_waitingForResult = false;
    m_authorized = false;
    m_lingerTimer.stop();
    if (m_server->isListening())
        return true;
    if (!m_server->listen(QHostAddress::LocalHost, kPort)) {
        qCCritical(lcHttpServer).noquote()
            << QStringLiteral("Can't listen on port %1: %2").arg(kPort).arg(m_server->errorString());
        return false;
    }
    emit listeningChanged(true);
    return true;
}

void HttpServer::stopListening()
{
    m_lingerTimer.stop();
    if (!m_server->isListening())
        return;
    m_server->close();
    emit listeningChanged(false);
}

void HttpServer::abort()
{
    m_waitingForResult = false;
    auto parked = std::move(m_parked);
    m_parked.clear();
    for (const auto &[socket, request] : parked)
        socket->abort();
    stopListening();
}

void HttpServer::setAuthorizationResult(bool authorized)
{
    m_authorized = authorized;
    // Gives the extension check time to report before the tab is answered.
    QTimer::singleShot(kResultDelayMs, this, [this] {
        if (m_waitingForResult || !m_parked.empty())
            answerParked();
    });
}

void HttpServer::setExtensionStatus(int status)
{
    m_extensionStatus = status;
    if (!m_parked.empty())
        answerParked();
}

void HttpServer::answerParked()
{
    m_waitingForResult = false;
    auto parked = std::move(m_parked);
    m_parked.clear();
    for (const auto &[socket, request] : parked)
        answer(socket, request);
    if (m_server->isListening())
        m_lingerTimer.start(kLingerMs);
}

void HttpServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        if (m_connections >= kMaxConnections) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        ++m_connections;
        connect(socket, &QTcpSocket::readyRead, this, &HttpServer::onReadyRead);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QObject::destroyed, this, [this, socket] {
            --m_connections;
            m_parked.erase(socket);
        });
        // A client that never finishes its request line is let go.
        QPointer<QTcpSocket> guarded(socket);
        QTimer::singleShot(kIdleTimeoutMs, socket, [this, guarded] {
            if (guarded && !guarded->property(kHandledProperty).toBool() && !m_parked.count(guarded))
                guarded->abort();
        });
    }
}

void HttpServer::onReadyRead()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (!socket)
        return;
    if (socket->property(kHandledProperty).toBool()) {
        socket->read(socket->bytesAvailable()); // the headers after the request line
        return;
    }
    QByteArray buffer = socket->property(kBufferProperty).toByteArray();
    buffer += socket->read(kMaxRequestBytes - buffer.size() + 1);
    // Only the request line matters; a line longer than allowed is invalid.
    const bool complete = buffer.contains('\n');
    if (!complete && buffer.size() <= kMaxRequestBytes) {
        socket->setProperty(kBufferProperty, buffer);
        return;
    }
    socket->setProperty(kBufferProperty, QVariant());
    socket->setProperty(kHandledProperty, true);
    handle(socket, complete ? ParsedRequest::parse(buffer.left(buffer.indexOf('\n') + 1)) : ParsedRequest());
    if (socket->bytesAvailable() > 0)
        socket->read(socket->bytesAvailable());
}

void HttpServer::handle(QTcpSocket *socket, ParsedRequest request)
{
    if (m_waitingForResult) {
        // A repeated redirect must not start a second exchange: it waits
        // for the same outcome as the first.
        if (request.kind == ParsedRequest::Kind::Code)
            request = {ParsedRequest::Kind::Result, QString()};
        m_parked[socket] = request;
        return;
    }
    answer(socket, request);
}

void HttpServer::answer(QTcpSocket *socket, const ParsedRequest &request)
{
    if (socket->state() != QAbstractSocket::ConnectedState)
        return;
    switch (request.kind) {
    case ParsedRequest::Kind::Code:
        m_waitingForResult = true;
        m_parked[socket] = {ParsedRequest::Kind::Result, QString()};
        emit accessCodeReceived(request.value);
        return;
    case ParsedRequest::Kind::Error:
        write(socket, m_resources.page(WebResources::Page::Failed), QStringLiteral("text/html"));
        return;
    case ParsedRequest::Kind::Result: {
        // Status 1 (installed, not activated) deliberately shows the ready page.
        const WebResources::Page page = !m_authorized            ? WebResources::Page::Failed
                                        : m_extensionStatus == 0 ? WebResources::Page::NotInstalled
                                                                 : WebResources::Page::Ready;
        write(socket, m_resources.page(page), QStringLiteral("text/html"));
        return;
    }
    case ParsedRequest::Kind::File: {
        QString type;
        const auto bytes = m_resources.file(request.value, &type);
        if (bytes)
            write(socket, *bytes, type);
        else
            finish(socket);
        return;
    }
    case ParsedRequest::Kind::Invalid:
        finish(socket);
        return;
    }
}

void HttpServer::write(QTcpSocket *socket, const QByteArray &body, const QString &contentType)
{
    // Bare line feeds and always 200, as browsers have always accepted them.
    QByteArray head = QStringLiteral("HTTP/1.1 200 OK\nContent-Type: %1; charset=utf-8\nConnection: "
                                     "close\nContent-Length: ")
                          .arg(contentType)
                          .toUtf8();
    head += QByteArray::number(body.size()) + "\n\n";
    socket->write(head + body);
    finish(socket);
}

void HttpServer::finish(QTcpSocket *socket)
{
    // Closing waits for the written bytes; a reader that takes them too
    // slowly is cut off.
    socket->disconnectFromHost();
    QPointer<QTcpSocket> guarded(socket);
    QTimer::singleShot(kWriteWaitMs, this, [guarded] {
        if (guarded)
            guarded->abort();
    });
}

} // namespace VCam
