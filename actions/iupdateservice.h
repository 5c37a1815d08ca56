#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <nlohmann/json.hpp>

namespace VCam {

// The update check as the application store drives it.
class IUpdateService : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual void start() = 0;
    virtual void checkForUpdates(bool userRequested) = 0;
    // The skipped version in its settings form, and back.
    virtual nlohmann::json skipVersion() const = 0;
    virtual void setSkipVersion(const nlohmann::json &version) = 0;
    // The skipped version from its text form "major.minor.patch.build".
    virtual void skipVersionText(const QString &version) = 0;
    virtual QString currentVersion() const = 0;

signals:
    void started();
    void latestVersionAvailable(const QString &version, const QString &notes);
    void latestVersionUrlAvailable(const QUrl &url);
};

} // namespace VCam
