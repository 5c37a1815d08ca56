#pragma once

#include "oauthtokens.h"

#include <QLoggingCategory>
#include <QObject>

Q_DECLARE_LOGGING_CATEGORY(lcTwitchAuth)

namespace VCam {

class NetworkManager;
class RealTimer;

// The Twitch side of the backend client: exchanges the authorization code
// through our backend, holds the token record, refreshes it through the
// backend before it expires (also when the program was closed longer than
// the token lives) and revokes it at Twitch. Every request goes through the
// network manager, which also gets the access token for Helix calls.
class TwitchAuthClient : public QObject
{
    Q_OBJECT
public:
    static inline const QString kRedirectUri = QStringLiteral("http://localhost:8492/");
    // Longest sleep between two looks at the expiry; a refresh that got no
    // answer at all (for example a rate limit) is tried again after this.
    static constexpr qint64 kMaxCheckIntervalMs = 60ll * 60 * 1000;
    static constexpr qint64 kRetryMs = 60ll * 1000;

    explicit TwitchAuthClient(NetworkManager *network, QObject *parent = nullptr);

    NetworkManager *network() const { return m_network; }
    OAuthTokens tokens() const { return m_tokens; }
    bool hasTokens() const { return !m_tokens.isEmpty(); }
    // When the next look at the expiry is due, -1 when none is planned.
    int msUntilCheck() const;

public slots:
    void exchangeCode(const QString &code);
    // Tokens read from the credential store: used at once, or refreshed
    // first when they expire soon or already did.
    void installTokens(const VCam::OAuthTokens &tokens);
    void refresh();
    void revoke();

signals:
    void authorized(const VCam::OAuthTokens &tokens);
    void authorizationLost();
    void twitchUserIdReceived(const QString &userId);

private:
    void accept(const QByteArray &body);
    void lose();
    void scheduleCheck();
    void onCheck();

    NetworkManager *m_network;
    RealTimer *m_checkTimer;
    OAuthTokens m_tokens;
    bool m_refreshing = false;
};

} // namespace VCam
