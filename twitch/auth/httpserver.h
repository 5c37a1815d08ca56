#pragma once

#include "parsedrequest.h"
#include "webresources.h"

#include <QHostAddress>
#include <QLoggingCategory>
#include <QObject>
#include <QTimer>
#include <map>

class QTcpServer;
class QTcpSocket;

Q_DECLARE_LOGGING_CATEGORY(lcHttpServer)

namespace VCam {

// Receives the browser's redirect after the Twitch sign-in on 127.0.0.1:8492.
// The tab that brings the code is kept open and answered only when the
// outcome is known, with a page that also says whether the Twitch extension
// is installed; requests arriving meanwhile are parked with it. Listens only
// while a sign-in runs.
class HttpServer : public QObject
{
    Q_OBJECT
public:
    static constexpr quint16 kPort = 8492;
    static constexpr int kResultDelayMs = 5000;
    static constexpr int kWriteWaitMs = 30000;
    // Bounds for what a local client may cost us.
    static constexpr int kMaxRequestBytes = 8192;
    static constexpr int kMaxConnections = 32;
    static constexpr int kIdleTimeoutMs = 30000;
    // After the outcome is shown, the page may still fetch its style sheet.
    static constexpr int kLingerMs = 10000;

    explicit HttpServer(WebResources resources = WebResources(), QObject *parent = nullptr);
    ~HttpServer() override;

    bool startListen();
    void abort();
    void setAuthorizationResult(bool authorized);
    void setExtensionStatus(int status);

    bool isListening() const;
    bool isWaitingForResult() const { return m_waitingForResult; }
    int connectionCount() const { return m_connections; }
    int parkedCount() const { return static_cast<int>(m_parked.size()); }

signals:
    void accessCodeReceived(const QString &code);
    void listeningChanged(bool listening);

public slots:
    void onNewConnection();
    void onReadyRead();

private:
    void handle(QTcpSocket *socket, ParsedRequest request);
    void answer(QTcpSocket *socket, const ParsedRequest &request);
    void write(QTcpSocket *socket, const QByteArray &body, const QString &contentType);
    void finish(QTcpSocket *socket);
    void answerParked();
    void stopListening();

    QTcpServer *m_server = nullptr;
    WebResources m_resources;
    std::map<QTcpSocket *, ParsedRequest> m_parked;
    QTimer m_lingerTimer;
    bool m_waitingForResult = false;
    bool m_authorized = false;
    int m_extensionStatus = 0;
    int m_connections = 0;
};

} // namespace VCam
