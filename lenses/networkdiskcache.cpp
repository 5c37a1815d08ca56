#include "networkdiskcache.h"

namespace VCam {

QIODevice *NetworkDiskCache::prepare(const QNetworkCacheMetaData &metaData)
{
    QNetworkCacheMetaData kept = metaData;
    kept.setSaveToDisk(true);
    return QNetworkDiskCache::prepare(kept);
}

} // namespace VCam
