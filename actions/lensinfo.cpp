#include "lensinfo.h"

#include "jsonlookup.h"

#include <QDebug>

namespace VCam {

namespace {

// Backend keys in the order they are read, with the member they fill.
struct TextField
{
    const char *key;
    QString LensInfo::*member;
};

const TextField kTextFields[] = {
    {"unlockable_id", &LensInfo::lensId},
    {"glintcode_url", &LensInfo::glintcodeUrl},
    {"user_display_name", &LensInfo::authorName},
    {"lens_name", &LensInfo::lensName},
    {"lens_status", &LensInfo::lensStatus},
    {"deeplink", &LensInfo::deeplink},
    {"media_url", &LensInfo::mediaUrl},
    {"icon_url", &LensInfo::iconUrl},
    {"thumbnail_media_url", &LensInfo::thumbnailMediaUrl},
    {"thumbnail_media_poster_url", &LensInfo::thumbnailMediaPosterUrl},
    {"standard_media_url", &LensInfo::standardMediaUrl},
    {"standard_media_poster_url", &LensInfo::standardMediaPosterUrl},
    {"obfuscated_user_slug", &LensInfo::authorSlug},
};

} // namespace

bool LensInfo::operator==(const LensInfo &other) const
{
    for (const auto &field : kTextFields) {
        if (this->*field.member != other.*field.member)
            return false;
    }
    return imageSequence == other.imageSequence;
}

bool LensInfo::fromJson(const nlohmann::json &json, LensInfo &out, std::string *error)
{
    if (!json.is_object()) {
        if (error)
            *error = "lens record is not an object";
        return false;
    }
    LensInfo info;
    JsonLookup lookup(json, error);
    for (const auto &field : kTextFields)
        lookup.read(field.key, info.*field.member);
    const nlohmann::json *sequence = lookup.object("image_sequence");
    if (!lookup.ok())
        return false;
    if (sequence && !ImageSequenceInfo::fromJson(*sequence, info.imageSequence, error))
        return false;
    out = info;
    return true;
}

nlohmann::json LensInfo::toJson() const
{
    nlohmann::json json = nlohmann::json::object();
    for (const auto &field : kTextFields)
        json[field.key] = (this->*field.member).toStdString();
    json["image_sequence"] = imageSequence.toJson();
    return json;
}

QDebug operator<<(QDebug debug, const LensInfo &info)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "LensInfo(" << info.lensId << ", " << info.lensName << ")";
    return debug;
}

} // namespace VCam
