#pragma once

#include <QString>
#include <nlohmann/json.hpp>

namespace VCam {

// A release number: major, minor, patch, build. Unset is all -1; valid when
// no part is negative and not all are 0. Two versions are equal when all
// four parts are.
struct Version
{
    qint32 major = -1;
    qint32 minor = -1;
    qint32 patch = -1;
    qint32 build = -1;

    bool isValid() const;
    QString toString() const; // "major.minor.patch.build"
    nlohmann::json toJson() const;

    // Exactly four dot-separated decimal numbers, each within 32 bits; any
    // other text gives the unset version.
    static Version fromString(const QString &text);
    // An object with integer "major", "minor", "patch", "build"; anything
    // else gives the unset version.
    static Version fromJson(const nlohmann::json &json);

    bool operator==(const Version &other) const;
    bool operator!=(const Version &other) const { return !(*this == other); }
    bool operator<(const Version &other) const;
};

} // namespace VCam
