#include "version.h"

#include <QStringList>
#include <tuple>

namespace VCam {

bool Version::isValid() const
{
    return major >= 0 && minor >= 0 && patch >= 0 && build >= 0 && qint64(major) + minor + patch + build > 0;
}

QString Version::toString() const
{
    return QStringLiteral("%1.%2.%3.%4").arg(major).arg(minor).arg(patch).arg(build);
}

nlohmann::json Version::toJson() const
{
    return {{"major", major}, {"minor", minor}, {"patch", patch}, {"build", build}};
}

Version Version::fromString(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 4)
        return {};
    qint32 numbers[4];
    for (int i = 0; i < 4; ++i) {
        const QString &part = parts[i];
        // Digits only: toInt would also take signs and surrounding blanks.
        if (part.isEmpty() || part.size() > 10)
            return {};
        for (const QChar c : part)
            if (c < QLatin1Char('0') || c > QLatin1Char('9'))
                return {};
        bool ok = false;
        numbers[i] = part.toInt(&ok);
        if (!ok)
            return {};
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

Version Version::fromJson(const nlohmann::json &json)
{
    if (!json.is_object())
        return {};
    qint32 numbers[4];
    const char *keys[4] = {"major", "minor", "patch", "build"};
    for (int i = 0; i < 4; ++i) {
        const auto it = json.find(keys[i]);
        if (it == json.end() || !it->is_number_integer())
            return {};
        const auto value = it->get<long long>();
        if (value < INT32_MIN || value > INT32_MAX)
            return {};
        numbers[i] = static_cast<qint32>(value);
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

bool Version::operator==(const Version &other) const
{
    return std::tie(major, minor, patch, build) ==
           std::tie(other.major, other.minor, other.patch, other.build);
}

bool Version::operator<(const Version &other) const
{
    return std::tie(major, minor, patch, build) <
           std::tie(other.major, other.minor, other.patch, other.build);
}

} // namespace VCam
