#pragma once

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QTcpSocket>
#include <QUrl>
#include <memory>

// One browser tab's request to a loopback server: the connection stays open
// until the server closes it, and everything it sent is kept.
class BrowserTab : public QObject
{
    Q_OBJECT
public:
    explicit BrowserTab(const QUrl &url);
    // A request of the caller's own making, sent as it is.
    BrowserTab(quint16 port, const QByteArray &rawRequest);

    bool isClosed() const { return m_closed; }
    bool connected() const { return m_connected; }
    QByteArray answer() const { return m_answer; }
    QByteArray body() const;
    // Waits until the server closed the connection.
    bool waitClosed(int ms);

private:
    QTcpSocket m_socket;
    QByteArray m_answer;
    bool m_closed = false;
    bool m_connected = false;
};

// Stands in for the desktop's browser: takes the URLs the program opens,
// follows Twitch's authorize page to its redirect and opens the redirect in
// a tab that waits for its page.
class SignInBrowser : public QObject
{
    Q_OBJECT
public:
    SignInBrowser();
    ~SignInBrowser() override;

    QList<QUrl> opened;
    bool follow = true;
    QUrl redirect; // where the authorize page sent the browser
    std::unique_ptr<BrowserTab> tab;

public slots:
    void open(const QUrl &url);

private:
    QNetworkAccessManager m_network;
};
