#include "networkdiskcache.h"

#include <QDateTime>

namespace VCam {

QIODevice *NetworkDiskCache::prepare(const QNetworkCacheMetaData &metaData)
{
    QNetworkCacheMetaData kept = metaData;
    kept.setSaveToDisk(true);
    // The folder lives for one run only, so an answer the server gave no
    // lifetime (or one already over) stays good for that run; otherwise
    // the engine would ask the network again for every image.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (!kept.expirationDate().isValid() || kept.expirationDate() < now)
        kept.setExpirationDate(now.addDays(1));
    return QNetworkDiskCache::prepare(kept);
}

} // namespace VCam
