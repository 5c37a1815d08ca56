#include "keychaincomponent.h"

#include <QJsonDocument>
#include <qt5keychain/keychain.h>

Q_LOGGING_CATEGORY(lcKeychain, "glint.twitch.keychain")

namespace VCam {

namespace {

// Errors that mean no credential store is there to keep anything.
bool isStoreMissing(QKeychain::Error error)
{
    return error == QKeychain::NoBackendAvailable || error == QKeychain::OtherError ||
           error == QKeychain::AccessDenied || error == QKeychain::NotImplemented;
}

// Jobs have no parent: the Secret Service answers asynchronously, and a job
// deleted before its answer came would be called after its death. Each job
// deletes itself once finished; its answer is dropped when this component
// is gone by then.
template <typename JobType> JobType *newJob(const QString &service)
{
    auto *job = new JobType(service);
    job->setAutoDelete(true);
    job->setInsecureFallback(false);
    job->setKey(KeychainComponent::kKey);
    return job;
}

} // namespace

KeychainComponent::KeychainComponent(const QString &applicationName, QObject *parent)
    : QObject(parent), m_service(QStringLiteral("com.glint.%1.OAuthTokens").arg(applicationName))
{}

void KeychainComponent::load()
{
    auto *job = newJob<QKeychain::ReadPasswordJob>(m_service);
    connect(job, &QKeychain::Job::finished, this, &KeychainComponent::onReadFinished);
    job->start();
}

void KeychainComponent::onReadFinished(QKeychain::Job *job)
{
    if (job->error() == QKeychain::EntryNotFound) {
        emit loadFinished(false);
        return;
    }
    if (job->error() != QKeychain::NoError) {
        noteFailure(job, "Failed to read %1 from keychain: %2");
        emit loadFinished(false);
        return;
    }
    setPersistent(true);
    const QByteArray data = static_cast<QKeychain::ReadPasswordJob *>(job)->binaryData();
    const QJsonDocument document =
        data.size() <= kMaxRecordBytes ? QJsonDocument::fromJson(data) : QJsonDocument();
    OAuthTokens tokens;
    if (!document.isObject() || !tokens.fromJson(document.object()) || tokens.isEmpty()) {
        qCWarning(lcKeychain) << "Unexpected data in OAuth keychain, cleaning up";
        remove();
        emit loadFinished(false);
        return;
    }
    emit tokensLoaded(tokens);
    emit loadFinished(true);
}

void KeychainComponent::store(const OAuthTokens &tokens)
{
    auto *job = newJob<QKeychain::WritePasswordJob>(m_service);
    job->setBinaryData(QJsonDocument(tokens.toJson()).toJson(QJsonDocument::Compact));
    connect(job, &QKeychain::Job::finished, this, [this](QKeychain::Job *finished) {
        const bool ok = finished->error() == QKeychain::NoError;
        if (ok)
            setPersistent(true);
        else
            noteFailure(finished, "Failed to write %1 to keychain: %2");
        emit storeFinished(ok);
    });
    job->start();
}

void KeychainComponent::remove()
{
    auto *job = newJob<QKeychain::DeletePasswordJob>(m_service);
    connect(job, &QKeychain::Job::finished, this, [this](QKeychain::Job *finished) {
        const bool ok =
            finished->error() == QKeychain::NoError || finished->error() == QKeychain::EntryNotFound;
        if (!ok)
            noteFailure(finished, "Failed to remove %1 from keychain: %2");
        emit storeFinished(ok);
    });
    job->start();
}

void KeychainComponent::noteFailure(QKeychain::Job *job, const char *what)
{
    qCWarning(lcKeychain).noquote() << QString::fromLatin1(what).arg(kKey, job->errorString());
    if (isStoreMissing(job->error()))
        setPersistent(false);
}

void KeychainComponent::setPersistent(bool persistent)
{
    if (m_persistent == persistent)
        return;
    m_persistent = persistent;
    emit persistentChanged(persistent);
}

} // namespace VCam
