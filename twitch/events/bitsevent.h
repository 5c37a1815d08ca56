#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace VCam {

// One cheer in the streamer's channel, whichever protocol told us.
struct BitsEvent
{
    QString userName;
    QString channelName;
    QString userId;
    QString channelId;
    QString time;
    QString chatMessage;
    qint64 bitsUsed = 0;
    qint64 totalBitsUsed = 0;
    QString context;
    QString version;
    QString messageType;
    QString messageId;

    // The PubSub message form: the cheer lives in "data", the envelope keys
    // beside it. Keys of the wrong type fail the whole event.
    static bool fromJson(const QJsonObject &json, BitsEvent &out, QString *error);
    QJsonObject toJson() const;
};

} // namespace VCam

Q_DECLARE_METATYPE(VCam::BitsEvent)
