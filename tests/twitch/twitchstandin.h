#pragma once

#include <QString>
#include <QStringList>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

// A small Twitch on a free loopback port that keeps to the real protocol for
// what we call: the OAuth authorize redirect, the token endpoint (code and
// refresh grants with the client secret), revoke, validate and Helix (users,
// extensions, streams (offline), EventSub subscriptions). Codes are
// single-use and bound to their redirect; a refresh rotates both tokens;
// revoking invalidates them. Runs on a thread of its own so that the lens server can
// call it while the test waits.
class TwitchStandIn
{
public:
    struct User
    {
        std::string id = "141981764", login = "glintstreamer", displayName = "GlintStreamer";
    };
    static constexpr const char *kClientId = "glint0test0client0id0abcdef123";
    static constexpr const char *kClientSecret = "stand-in-secret";
    static constexpr const char *kRedirectUri = "http://localhost:8492/";

    TwitchStandIn();
    ~TwitchStandIn();

    bool start();
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }
    QString oauthUrl() const { return baseUrl() + QStringLiteral("/oauth2/"); }
    QString helixUrl() const { return baseUrl() + QStringLiteral("/helix/"); }
    // The lens server's options for exchanging and refreshing tokens here.
    QStringList lensServerArguments() const
    {
        return {"--twitch-client-id",     kClientId,
                "--twitch-client-secret", kClientSecret,
                "--twitch-token-url",     baseUrl() + "/oauth2/token"};
    }

    // Behaviour for the next requests.
    void setUserRefuses(bool refuses) { m_refuses = refuses; }
    void forgetRefreshTokens();
    enum class Extension { None, Installed, Active };
    void setExtension(Extension state) { m_extension = state; }
    const User &user() const { return m_user; }

    // EventSub sessions, kept for the WebSocket side: subscriptions are made
    // for a session that exists and go with it. An empty `from` opens a
    // session, an empty `to` closes one, both move one (session_reconnect).
    void moveSession(const std::string &from, const std::string &to);
    std::set<std::string> subscriptionsOf(const std::string &session) const;

    // What happened.
    int subscriptionRequests() const { return m_subscriptionRequests; }
    int codeExchanges() const { return m_exchanges; }
    int refreshes() const { return m_refreshes; }
    int revocations() const { return m_revocations; }
    bool isAccessTokenValid(const std::string &token) const;
    // The access token stops working early; its refresh token still works.
    void invalidateAccessToken(const std::string &token);
    // Tokens as a finished sign-in would issue them: {access, refresh}.
    std::pair<std::string, std::string> issueTokens();

private:
    void authRoutes();
    void helixRoutes();
    std::pair<std::string, std::string> issueLocked();
    std::string newSecret(size_t length);

    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    int m_port = 0;
    User m_user;
    mutable std::mutex m_mutex;
    std::map<std::string, std::string> m_codes; // code -> redirect uri
    std::set<std::string> m_validTokens;
    std::map<std::string, std::string> m_refresh;            // refresh token -> access token
    std::map<std::string, std::set<std::string>> m_sessions; // session -> subscription types
    unsigned m_counter = 0;
    std::atomic<bool> m_refuses{false};
    std::atomic<Extension> m_extension{Extension::Active};
    std::atomic<int> m_exchanges{0}, m_refreshes{0}, m_revocations{0}, m_subscriptionRequests{0};
};
