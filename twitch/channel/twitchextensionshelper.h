#pragma once

#include <QLoggingCategory>
#include <QObject>
#include <actiontypes.h>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchExtensions)

namespace VCam {

class NetworkManager;

// Checks through Helix whether our Twitch extension is installed on the
// user's channel and whether it sits in an active slot. A small state
// machine; entering a step runs it.
class TwitchExtensionsHelper : public QObject
{
    Q_OBJECT
public:
    enum Step { Initial = 0, VerifyExtensionInstalled = 1, VerifyExtensionActivated = 2, Final = 3 };
    Q_ENUM(Step)

    explicit TwitchExtensionsHelper(NetworkManager *network, QObject *parent = nullptr);

    // The extension id is the application's Twitch client id.
    void check(const QString &extensionId);
    Step step() const { return m_step; }

signals:
    void extensionStatusRequestFailed(const QString &error);
    void extensionStatusReceived(VCam::TwitchExtensionStatus status);

private:
    void enter(Step step);
    void verifyInstalled();
    void verifyActivated();
    void finish();
    // False (with the error recorded) when the answer is not a JSON object
    // whose "data" has the wanted type.
    bool readData(int status, const QByteArray &body, const QString &failure, bool wantArray,
                  QJsonValue *data);

    NetworkManager *m_network;
    Step m_step = Initial;
    Step m_failedStep = Initial;
    QString m_extensionId;
    TwitchExtensionStatus m_status = TwitchExtensionStatus::NotInstalled;
    QString m_error;
    quint64 m_generation = 0;
};

} // namespace VCam
