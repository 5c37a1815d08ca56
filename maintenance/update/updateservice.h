#pragma once

#include "version.h"

#include <QLoggingCategory>
#include <iupdateservice.h>

Q_DECLARE_LOGGING_CATEGORY(lcUpdate)

namespace VCam {

class NetworkManager;

// Asks the backend for the newest release and offers it when it differs
// from the installed version and from the version the user skipped (a check
// the user asked for offers any valid release). The offer comes with its
// download address, or the fallback page when the backend gives none.
// Every failure is one logged warning and no offer.
class UpdateService : public IUpdateService
{
    Q_OBJECT
public:
    // installed: the program's own version; fallbackUrl: the page to open
    // when the backend has no download address.
    UpdateService(NetworkManager *network, const Version &installed, const QUrl &fallbackUrl,
                  QObject *parent = nullptr);

    // The compiled version of this build and the compiled (or overridden)
    // fallback page.
    static Version buildVersion();
    static QUrl defaultFallbackUrl();

    void start() override;
    void checkForUpdates(bool userRequested) override;
    nlohmann::json skipVersion() const override;
    void setSkipVersion(const nlohmann::json &version) override;
    void skipVersionText(const QString &version) override;
    QString currentVersion() const override { return m_installed.toString(); }

    Version skippedVersion() const { return m_skipped; }
    bool userRequested() const { return m_userRequested; }

private:
    void onLatestVersion(int status, const QByteArray &body, const QString &error);
    void requestDownloadAddress(const QString &version, const QString &notes);

    NetworkManager *m_network;
    Version m_installed;
    QUrl m_fallbackUrl;
    Version m_skipped;
    bool m_userRequested = false;
};

} // namespace VCam
