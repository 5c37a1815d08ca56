#include "imagesequenceinfo.h"

#include "jsonlookup.h"

namespace VCam {

bool ImageSequenceInfo::operator==(const ImageSequenceInfo &other) const
{
    return urlPattern == other.urlPattern && frameIntervalMs == other.frameIntervalMs && size == other.size;
}

bool ImageSequenceInfo::fromJson(const nlohmann::json &json, ImageSequenceInfo &out, std::string *error)
{
    if (!json.is_object()) {
        if (error)
            *error = "image sequence is not an object";
        return false;
    }
    ImageSequenceInfo info;
    JsonLookup lookup(json, error);
    lookup.read("url_pattern", info.urlPattern);
    lookup.read("frame_interval_ms", info.frameIntervalMs);
    lookup.read("size", info.size);
    if (!lookup.ok())
        return false;
    out = info;
    return true;
}

nlohmann::json ImageSequenceInfo::toJson() const
{
    return {
        {"url_pattern", urlPattern.toStdString()}, {"frame_interval_ms", frameIntervalMs}, {"size", size}};
}

} // namespace VCam
