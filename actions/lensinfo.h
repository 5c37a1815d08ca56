#pragma once

#include "imagesequenceinfo.h"
#include "lensid.h"

#include <QMetaType>
#include <QString>
#include <nlohmann/json.hpp>

namespace VCam {

// One catalogue lens as the backend describes it.
struct LensInfo
{
    LensId lensId = kInvalidLensId;
    QString glintcodeUrl;
    QString authorName;
    QString lensName;
    QString lensStatus;
    QString deeplink;
    QString mediaUrl;
    QString iconUrl;
    QString thumbnailMediaUrl;
    QString thumbnailMediaPosterUrl;
    QString standardMediaUrl;
    QString standardMediaPosterUrl;
    QString authorSlug;
    ImageSequenceInfo imageSequence;

    bool isValid() const { return lensId != kInvalidLensId; }
    bool operator==(const LensInfo &other) const;

    // Reads the backend form. Missing members keep their defaults; a member
    // of the wrong type fails the whole record (reason in error).
    static bool fromJson(const nlohmann::json &json, LensInfo &out, std::string *error = nullptr);
    nlohmann::json toJson() const;
};

QDebug operator<<(QDebug debug, const LensInfo &info);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::LensInfo)
