#pragma once

#include <QDateTime>
#include <QDebug>
#include <QMetaType>
#include <QVariantMap>

namespace VCam {

// Whether the streamer's channel is live, from the streams answer of the
// streaming platform; an offline channel has live == false.
struct StreamState
{
    bool live = false;
    QDateTime startedAt;
    qint64 viewerCount = 0;
    QVariantMap fields; // every field of the stream entry as received
};

QDebug operator<<(QDebug debug, const StreamState &state);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::StreamState)
