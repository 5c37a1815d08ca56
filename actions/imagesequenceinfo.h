#pragma once

#include <QMetaType>
#include <QString>
#include <nlohmann/json.hpp>

namespace VCam {

// A lens's animated preview: frame URLs made from a pattern, shown at a
// fixed interval.
struct ImageSequenceInfo
{
    QString urlPattern;
    qint64 frameIntervalMs = 0;
    qint64 size = 0;

    bool operator==(const ImageSequenceInfo &other) const;
    bool isEmpty() const { return size <= 0 || urlPattern.isEmpty(); }

    // Reads the backend form; false (with a reason) when a member has the wrong type.
    static bool fromJson(const nlohmann::json &json, ImageSequenceInfo &out, std::string *error = nullptr);
    nlohmann::json toJson() const;
};

} // namespace VCam

Q_DECLARE_METATYPE(VCam::ImageSequenceInfo)
