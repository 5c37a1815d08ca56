#pragma once

#include <QNetworkDiskCache>

namespace VCam {

// A disk cache that keeps every answer, whatever the server's caching
// headers say.
class NetworkDiskCache : public QNetworkDiskCache
{
    Q_OBJECT
public:
    using QNetworkDiskCache::QNetworkDiskCache;

    QIODevice *prepare(const QNetworkCacheMetaData &metaData) override;
};

} // namespace VCam
