#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace VCam {

// A Twitch user as Helix "users" describes it.
struct TwitchUser
{
    QString id;
    QString login;
    QString displayName;
    QString type;
    QString broadcasterType;
    QString description;
    QString profileImageUrl;
    QString offlineImageUrl;
    qint64 viewCount = 0;
    QString email;

    static TwitchUser fromJson(const QJsonObject &json);
    // "partner" and "affiliate" accounts can have subscribers.
    bool isPartner() const;
};

} // namespace VCam

Q_DECLARE_METATYPE(VCam::TwitchUser)
