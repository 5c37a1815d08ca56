#include "signinbrowser.h"

#include <QDesktopServices>
#include <QNetworkReply>
#include <QTest>

BrowserTab::BrowserTab(const QUrl &url)
    : BrowserTab(quint16(url.port(80)), "GET " + url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority) +
                                            " HTTP/1.1\r\nHost: " + url.host().toUtf8() + ':' +
                                            QByteArray::number(url.port(80)) +
                                            "\r\nUser-Agent: Mozilla/5.0 (X11; Linux x86_64)\r\n\r\n")
{}

BrowserTab::BrowserTab(quint16 port, const QByteArray &rawRequest)
{
    connect(&m_socket, &QTcpSocket::connected, this, [this, rawRequest] {
        m_connected = true;
        m_socket.write(rawRequest);
    });
    connect(&m_socket, &QTcpSocket::readyRead, this, [this] { m_answer += m_socket.readAll(); });
    const auto closed = [this] {
        if (m_socket.isOpen())
            m_answer += m_socket.readAll();
        m_closed = true;
    };
    connect(&m_socket, &QTcpSocket::disconnected, this, closed);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, closed);
    m_socket.connectToHost(QStringLiteral("127.0.0.1"), port);
}

bool BrowserTab::waitClosed(int ms)
{
    return QTest::qWaitFor([this] { return m_closed; }, ms);
}

QByteArray BrowserTab::body() const
{
    const int end = m_answer.indexOf("\n\n");
    return end < 0 ? QByteArray() : m_answer.mid(end + 2);
}

SignInBrowser::SignInBrowser()
{
    m_network.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    QDesktopServices::setUrlHandler(QStringLiteral("http"), this, "open");
}

SignInBrowser::~SignInBrowser()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
}

void SignInBrowser::open(const QUrl &url)
{
    opened << url;
    if (!follow)
        return;
    QNetworkReply *reply = m_network.get(QNetworkRequest(url));
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        redirect = reply->header(QNetworkRequest::LocationHeader).toUrl();
        // The browser resolves "localhost" to the loopback address.
        QUrl target = redirect;
        target.setHost(QStringLiteral("127.0.0.1"));
        if (!redirect.isEmpty())
            tab = std::make_unique<BrowserTab>(target);
    });
}
