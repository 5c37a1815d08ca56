#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QTcpServer>

// A small HTTP/1.1 server on a free loopback port that answers each path
// with a canned response and records what it received. For answers the lens
// server would never give (garbage, crafted archives, silence).
class HttpFixture : public QObject
{
    Q_OBJECT
public:
    struct Response
    {
        int status = 200;
        QByteArray body;
        QByteArray contentType = "application/json";
        bool silent = false; // accept the request, never answer
        int delayMs = 0;
    };
    struct Received
    {
        QByteArray method;
        QByteArray target;                    // path and query
        QMap<QByteArray, QByteArray> headers; // lower-case names
        QByteArray body;
    };

    explicit HttpFixture(QObject *parent = nullptr);

    QString url(const QString &path = QString()) const;
    void route(const QByteArray &path, const Response &response) { m_routes[path] = response; }
    void route(const QByteArray &path, int status, const QByteArray &body)
    {
        m_routes[path] = {status, body};
    }
    const QList<Received> &received() const { return m_received; }
    int count(const QByteArray &path) const;
    void reset()
    {
        m_routes.clear();
        m_received.clear();
    }

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const Received &request);

    QTcpServer m_server;
    QHash<QByteArray, Response> m_routes;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    QList<Received> m_received;
};
