#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QSet>
#include <QString>
#include <memory>

class QTcpServer;
class QTcpSocket;
class QTimer;

namespace VCam {

class JsonObjectSplitter;

// Accepts external events from programs on this computer: JSON objects
// {"type": "<event name>", "data": <any JSON>} over TCP on the loopback
// address. Objects may arrive one per chunk, several in one chunk or split
// over chunks; newline-delimited JSON works as it is. Nothing is written
// back. Everything a client sends is bounded: the size of one message, the
// number of connections, how long a message may take to arrive and how long
// a connection may stay silent.
class ExternalEventsListener : public QObject
{
    Q_OBJECT
public:
    static constexpr quint16 kDefaultPort = 8899;

    struct Limits
    {
        int maxMessageBytes = 64 * 1024;
        int maxConnections = 16;
        // A message begun must be complete within this time.
        int messageTimeoutMs = 5000;
        // A connection that sends nothing for this long is closed.
        int idleTimeoutMs = 60000;
    };

    explicit ExternalEventsListener(QObject *parent = nullptr);
    ExternalEventsListener(quint16 port, Limits limits, QObject *parent = nullptr);
    ~ExternalEventsListener() override;

    // Listens on 127.0.0.1; false (and a critical log line) when the port
    // cannot be had. The program goes on without external events then.
    bool startListen();
    bool isListening() const;
    quint16 port() const;
    int connectionCount() const { return m_connections.size(); }

signals:
    void externalEventReceived(const QByteArray &type, const QByteArray &data);

private slots:
    void onNewConnection();
    void onReadyRead();
    void onDisconnected();
    void onSweep();

private:
    struct Connection
    {
        std::shared_ptr<JsonObjectSplitter> splitter;
        QElapsedTimer lastActivity;
        QElapsedTimer messageStarted; // valid while a message is incomplete
    };

    void accept(QTcpSocket *socket);
    bool evictIdleConnection();
    void drop(QTcpSocket *socket, const QString &cause);
    void handleMessage(const QByteArray &message);
    void logOnce(const QString &cause);

    quint16 m_port;
    Limits m_limits;
    QTcpServer *m_server;
    QTimer *m_sweep;
    QHash<QTcpSocket *, Connection> m_connections;
    QSet<QString> m_loggedCauses;
};

} // namespace VCam
