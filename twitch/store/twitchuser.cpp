#include "twitchuser.h"

namespace VCam {

TwitchUser TwitchUser::fromJson(const QJsonObject &json)
{
    const auto text = [&json](const char *key) { return json.value(QLatin1String(key)).toString(); };
    TwitchUser user;
    user.id = text("id");
    user.login = text("login");
    user.displayName = text("display_name");
    user.type = text("type");
    user.broadcasterType = text("broadcaster_type");
    user.description = text("description");
    user.profileImageUrl = text("profile_image_url");
    user.offlineImageUrl = text("offline_image_url");
    user.viewCount = static_cast<qint64>(json.value(QLatin1String("view_count")).toDouble());
    user.email = text("email");
    return user;
}

bool TwitchUser::isPartner() const
{
    return broadcasterType == QLatin1String("partner") || broadcasterType == QLatin1String("affiliate");
}

} // namespace VCam
