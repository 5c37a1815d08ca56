#pragma once

#include "oauthtokens.h"

#include <QLoggingCategory>
#include <QObject>

Q_DECLARE_LOGGING_CATEGORY(lcKeychain)

namespace QKeychain {
class Job;
}

namespace VCam {

// Keeps the Twitch token record in the system credential store (the Secret
// Service on Linux) and nowhere else: there is no plain-text fallback. When
// no credential store answers, the failure is logged and the program goes on
// with the tokens in memory; isPersistent() then turns false so that the
// interface can say the sign-in will not be remembered.
class KeychainComponent : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxRecordBytes = 64 * 1024;
    static inline const QString kKey = QStringLiteral("twitch");

    // applicationName: fills the service name "com.glint.%1.OAuthTokens".
    explicit KeychainComponent(const QString &applicationName, QObject *parent = nullptr);

    QString serviceName() const { return m_service; }
    bool isPersistent() const { return m_persistent; }

public slots:
    void load();
    void store(const VCam::OAuthTokens &tokens);
    void remove();

signals:
    void tokensLoaded(const VCam::OAuthTokens &tokens);
    // After every load, with or without a record.
    void loadFinished(bool found);
    void persistentChanged(bool persistent);
    // After each write or removal, for whoever waits on the store.
    void storeFinished(bool ok);

private:
    void onReadFinished(QKeychain::Job *job);
    void noteFailure(QKeychain::Job *job, const char *what);
    void setPersistent(bool persistent);

    QString m_service;
    bool m_persistent = true;
};

} // namespace VCam
