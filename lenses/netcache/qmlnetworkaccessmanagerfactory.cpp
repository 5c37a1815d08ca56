#include "qmlnetworkaccessmanagerfactory.h"

#include "cachingnetworkaccessmanager.h"
#include "networkdiskcache.h"

#include <QDir>
#include <QStandardPaths>

namespace VCam {

QString QmlNetworkAccessManagerFactory::cacheFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) +
           QStringLiteral("/qml_network_cache");
}

QNetworkAccessManager *QmlNetworkAccessManagerFactory::create(QObject *parent)
{
    auto *manager = new CachingNetworkAccessManager(parent);
    auto *cache = new NetworkDiskCache(manager);
    cache->setMaximumCacheSize(kMaxCacheBytes);
    const QString folder = cacheFolder();
    QDir(folder).removeRecursively();
    cache->setCacheDirectory(folder);
    manager->setCache(cache);
    return manager;
}

} // namespace VCam
