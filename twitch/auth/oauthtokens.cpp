#include "oauthtokens.h"

#include <QDateTime>

namespace VCam {

bool OAuthTokens::fromJson(const QJsonObject &json)
{
    const bool hasToken =
        json.contains(QLatin1String("access_token")) || json.contains(QLatin1String("refresh_token"));
    const bool hasExpiry =
        json.contains(QLatin1String("expires_in")) || json.contains(QLatin1String("expires_at"));
    if (!hasToken || !hasExpiry) {
        clear();
        return false;
    }
    const auto seconds = [&json](const char *key) {
        return static_cast<qint64>(json.value(QLatin1String(key)).toDouble());
    };
    issuedAt =
        json.contains(QLatin1String("issued_at")) ? seconds("issued_at") : QDateTime::currentSecsSinceEpoch();
    expiresAt =
        json.contains(QLatin1String("expires_in")) ? issuedAt + seconds("expires_in") : seconds("expires_at");
    if (json.contains(QLatin1String("access_token")))
        accessToken = json.value(QLatin1String("access_token")).toString();
    if (json.contains(QLatin1String("refresh_token")))
        refreshToken = json.value(QLatin1String("refresh_token")).toString();
    return true;
}

QJsonObject OAuthTokens::toJson() const
{
    return QJsonObject{{QStringLiteral("token_type"), QStringLiteral("Bearer")},
                       {QStringLiteral("issued_at"), double(issuedAt)},
                       {QStringLiteral("expires_at"), double(expiresAt)},
                       {QStringLiteral("access_token"), accessToken},
                       {QStringLiteral("refresh_token"), refreshToken}};
}

bool OAuthTokens::needsRefresh() const
{
    return needsRefreshAt(QDateTime::currentSecsSinceEpoch());
}

bool OAuthTokens::needsRefreshAt(qint64 nowSecs) const
{
    return !refreshToken.isEmpty() && expiresAt - nowSecs < kRefreshMarginSecs;
}

void OAuthTokens::clear()
{
    issuedAt = -1;
    expiresAt = -1;
    accessToken.clear();
    refreshToken.clear();
}

} // namespace VCam
