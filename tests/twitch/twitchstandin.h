#pragma once

#include <QString>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

// A small Twitch on a free loopback port that keeps to the real protocol
// for what we call: the OAuth authorize page (answers with the redirect a
// browser follows), the token endpoint (authorization code and refresh
// token grants with the client secret), revoke, validate and Helix "users".
// Codes are single-use and bound to their redirect; refreshing rotates both
// tokens; revoking invalidates them. Runs on a thread of its own so that
// the lens server can call it while the test waits.
class TwitchStandIn
{
public:
    struct User
    {
        std::string id = "141981764";
        std::string login = "glintstreamer";
        std::string displayName = "GlintStreamer";
        std::string broadcasterType = "affiliate";
    };

    static constexpr const char *kClientId = "glint0test0client0id0abcdef123";
    static constexpr const char *kClientSecret = "stand-in-secret";
    static constexpr const char *kRedirectUri = "http://localhost:8492/";

    TwitchStandIn();
    ~TwitchStandIn();

    bool start();
    QString baseUrl() const;
    QString oauthUrl() const { return baseUrl() + QStringLiteral("/oauth2/"); }
    QString tokenUrl() const { return baseUrl() + QStringLiteral("/oauth2/token"); }
    QString helixUrl() const { return baseUrl() + QStringLiteral("/helix/"); }

    // Behaviour for the next requests.
    void setUserRefuses(bool refuses) { m_refuses = refuses; }
    void setTokenLifetime(int seconds) { m_lifetime = seconds; }
    void forgetRefreshTokens();

    // What happened.
    int codeExchanges() const { return m_exchanges; }
    int refreshes() const { return m_refreshes; }
    int revocations() const { return m_revocations; }
    bool isAccessTokenValid(const std::string &token) const;
    // Issues tokens as a finished sign-in would, for tests that start from
    // a stored login: {access, refresh}.
    std::pair<std::string, std::string> issueTokens();

private:
    void routes();
    std::string newSecret(size_t length);

    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    int m_port = 0;
    mutable std::mutex m_mutex;
    std::map<std::string, std::string> m_codes;   // code -> redirect uri
    std::map<std::string, bool> m_accessTokens;   // token -> valid
    std::map<std::string, std::string> m_refresh; // refresh token -> access token
    std::atomic<bool> m_refuses{false};
    std::atomic<int> m_lifetime{14400};
    std::atomic<int> m_exchanges{0};
    std::atomic<int> m_refreshes{0};
    std::atomic<int> m_revocations{0};
    unsigned m_counter = 0;
    User m_user;
};
