#pragma once

#include <QLoggingCategory>
#include <QObject>
#include <QTimer>
#include <streamstate.h>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchStreamState)

namespace VCam {

class NetworkManager;

// Asks Helix every five minutes whether the user's channel is live.
class TwitchStreamStateHelper : public QObject
{
    Q_OBJECT
public:
    static constexpr int kPollIntervalMs = 300000;

    explicit TwitchStreamStateHelper(NetworkManager *network, QObject *parent = nullptr);

    // Stores the login and asks at once; the polling follows it.
    void setUserLogin(const QString &login);
    // Logout: no more polling.
    void stop();
    QTimer *timer() { return &m_timer; }

    // Reads a streams answer; false with the reason when it has the wrong shape.
    static bool parse(const QByteArray &body, StreamState *state, QString *error);

signals:
    void streamStateReceived(const VCam::StreamState &streamState);

private:
    void request();

    NetworkManager *m_network;
    QTimer m_timer;
    QString m_login;
    quint64 m_generation = 0;
};

} // namespace VCam
