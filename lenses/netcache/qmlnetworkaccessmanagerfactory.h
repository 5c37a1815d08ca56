#pragma once

#include <QQmlNetworkAccessManagerFactory>
#include <QString>

namespace VCam {

// Gives the QML engine managers that keep every image they load on disk for
// the run; the cache folder is emptied each time a manager is made.
class QmlNetworkAccessManagerFactory : public QQmlNetworkAccessManagerFactory
{
public:
    static constexpr qint64 kMaxCacheBytes = 50 * 1024 * 1024;

    // <cache location>/qml_network_cache
    static QString cacheFolder();

    QNetworkAccessManager *create(QObject *parent) override;
};

} // namespace VCam
