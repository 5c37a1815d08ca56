#include "httpfixture.h"

#include <QTcpSocket>
#include <QTimer>

HttpFixture::HttpFixture(QObject *parent) : QObject(parent)
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, &HttpFixture::onNewConnection);
}

QString HttpFixture::url(const QString &path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
}

int HttpFixture::count(const QByteArray &path) const
{
    int n = 0;
    for (const Received &r : m_received)
        n += r.target.split('?').first() == path ? 1 : 0;
    return n;
}

void HttpFixture::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        // Context this: the connection goes before the sockets (children) when
        // the fixture is destroyed, so the handler never sees a dead fixture.
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void HttpFixture::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const int headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;
    Received request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
    request.method = start.value(0);
    request.target = start.value(1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers[lines[i].left(colon).trimmed().toLower()] = lines[i].mid(colon + 1).trimmed();
    }
    const int length = request.headers.value("content-length", "0").toInt();
    if (buffer.size() < headerEnd + 4 + length)
        return;
    request.body = buffer.mid(headerEnd + 4, length);
    buffer.clear();
    m_received << request;
    answer(socket, request);
}

void HttpFixture::answer(QTcpSocket *socket, const Received &request)
{
    const QByteArray path = request.target.split('?').first();
    const Response response = m_routes.value(path, Response{404, "{}"});
    if (response.silent)
        return;
    QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
    out += "Content-Type: " + response.contentType + "\r\n";
    out += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\nConnection: close\r\n\r\n";
    out += response.body;
    QTimer::singleShot(response.delayMs, socket, [socket, out] {
        socket->write(out);
        socket->disconnectFromHost();
    });
}
