#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QString>

namespace VCam {

// The Twitch token record: when it was issued, when it expires (seconds since
// the epoch, -1 when there is no token) and the two token strings. A plain
// value, copied freely and passed through queued signals.
class OAuthTokens
{
    Q_GADGET
public:
    // Tokens closer than this to their expiry are refreshed.
    static constexpr qint64 kRefreshMarginSecs = 600;

    // Reads the backend's answer or the stored record. Needs a token and an
    // expiry ("expires_in" wins over "expires_at"); otherwise the record is
    // cleared and false returned.
    bool fromJson(const QJsonObject &json);
    // The stored form: never "expires_in", always "token_type" "Bearer".
    QJsonObject toJson() const;
    bool needsRefresh() const;
    bool needsRefreshAt(qint64 nowSecs) const;
    void clear();
    bool isEmpty() const { return accessToken.isEmpty() && refreshToken.isEmpty(); }

    qint64 issuedAt = -1;
    qint64 expiresAt = -1;
    QString accessToken;
    QString refreshToken;
};

} // namespace VCam

Q_DECLARE_METATYPE(VCam::OAuthTokens)
