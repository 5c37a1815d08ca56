#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace VCam {

// One subscription to the streamer's channel, whichever protocol told us.
struct SubscribeEvent
{
    QString userName;
    QString displayName;
    QString channelName;
    QString userId;
    QString channelId;
    QString time;
    QString subPlan; // "Prime", "1000", "2000" or "3000"
    QString subPlanName;
    QString context; // "sub", "resub", other values possible
    int months = 0;

    // The PubSub message form. Keys of the wrong type fail the whole event
    // (reason in error); missing keys stay empty.
    static bool fromJson(const QJsonObject &json, SubscribeEvent &out, QString *error);
    QJsonObject toJson() const;
};

} // namespace VCam

Q_DECLARE_METATYPE(VCam::SubscribeEvent)
