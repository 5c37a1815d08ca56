#include "updateservice.h"

#include "networkmanager.h"

#include <glintdeployment.h>

Q_LOGGING_CATEGORY(lcUpdate, "glint.update")

namespace VCam {

namespace {

const char *const kLatestWarning = "Can't get latest Virtual Camera verison: %1";

QString bodyExcerpt(const QByteArray &body)
{
    return QString::fromUtf8(body.left(200)).simplified();
}

} // namespace

UpdateService::UpdateService(NetworkManager *network, const Version &installed, const QUrl &fallbackUrl,
                             QObject *parent)
    : IUpdateService(parent), m_network(network), m_installed(installed), m_fallbackUrl(fallbackUrl)
{}

Version UpdateService::buildVersion()
{
    return Version::fromString(QString::fromLatin1(glint::kVersion));
}

QUrl UpdateService::defaultFallbackUrl()
{
    return QUrl(QString::fromStdString(glint::deployment(glint::kUpdatePageUrl)));
}

void UpdateService::start()
{
    emit started();
}

void UpdateService::checkForUpdates(bool userRequested)
{
    m_userRequested = userRequested;
    m_network->requestLatestVersion([this](int status, const QByteArray &body, const QString &error) {
        onLatestVersion(status, body, error);
    });
}

void UpdateService::onLatestVersion(int status, const QByteArray &body, const QString &error)
{
    const auto warn = [](const QString &reason) {
        qCWarning(lcUpdate).noquote() << QString::fromLatin1(kLatestWarning).arg(reason);
    };
    if (!error.isEmpty())
        return warn(error);
    if (status / 100 != 2)
        return warn(QStringLiteral("HTTP %1 %2").arg(status).arg(bodyExcerpt(body)));
    const nlohmann::json answer =
        nlohmann::json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
    if (!answer.is_object())
        return warn(QStringLiteral("the answer is not a JSON object: %1").arg(bodyExcerpt(body)));
    const auto version = answer.find("version");
    if (version == answer.end() || !version->is_string())
        return warn(QStringLiteral("the answer has no \"version\" text"));
    const QString versionText = QString::fromStdString(version->get<std::string>());
    if (versionText.isEmpty())
        return; // no release published
    const auto notesField = answer.find("notes");
    const QString notes = notesField != answer.end() && notesField->is_string()
                              ? QString::fromStdString(notesField->get<std::string>())
                              : QString();
    const Version latest = Version::fromString(versionText);
    if (!latest.isValid())
        return warn(QStringLiteral("\"%1\" is not a valid version").arg(versionText.left(64)));
    // Any release other than the installed one is offered, older ones too:
    // the backend decides what users should run.
    if (!m_userRequested && (latest == m_skipped || latest == m_installed))
        return;
    requestDownloadAddress(latest.toString(), notes);
}

void UpdateService::requestDownloadAddress(const QString &version, const QString &notes)
{
    m_network->requestUpdateDownload([this, version, notes](int status, const QByteArray &body,
                                                            const QString &error) {
        QUrl url;
        if (error.isEmpty() && status / 100 == 2) {
            const nlohmann::json answer =
                nlohmann::json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
            const auto field = answer.is_object() ? answer.find("url") : answer.end();
            if (answer.is_object() && field != answer.end() && field->is_string())
                url = QUrl(QString::fromStdString(field->get<std::string>()), QUrl::StrictMode);
        }
        // Only web addresses are opened for the user.
        if (!url.isValid() ||
            (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http"))) {
            qCWarning(lcUpdate).noquote() << "UpdateService::requestLatestVersionUrl" << bodyExcerpt(body);
            url = m_fallbackUrl;
        }
        qCInfo(lcUpdate).noquote() << "Update offered:" << version;
        emit latestVersionUrlAvailable(url);
        emit latestVersionAvailable(version, notes);
    });
}

nlohmann::json UpdateService::skipVersion() const
{
    return m_skipped.isValid() ? m_skipped.toJson() : nlohmann::json();
}

void UpdateService::setSkipVersion(const nlohmann::json &version)
{
    m_skipped = Version::fromJson(version);
}

void UpdateService::skipVersionText(const QString &version)
{
    m_skipped = Version::fromString(version);
}

} // namespace VCam
