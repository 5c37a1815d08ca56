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
    // The lens server's options for exchanging and refreshing tokens here.
    QStringList lensServerArguments() const
    {
        return {QStringLiteral("--twitch-client-id"),     kClientId,
                QStringLiteral("--twitch-client-secret"), kClientSecret,
                QStringLiteral("--twitch-token-url"),     tokenUrl()};
    }

    // Behaviour for the next requests.
    void setUserRefuses(bool refuses) { m_refuses = refuses; }
    void forgetRefreshTokens();
    enum class Extension { None, Installed, Active };
    void setExtension(Extension state) { m_extension = state; }
    void setStream(bool live, int viewers)
    {
        m_live = live;
        m_viewers = viewers;
    }
    const User &user() const { return m_user; }

    // EventSub sessions, kept by the WebSocket side: subscriptions can only
    // be created for a session that exists; they go with it.
    void openSession(const std::string &id);
    void closeSession(const std::string &id);
    void moveSession(const std::string &from, const std::string &to);
    std::set<std::string> subscriptionsOf(const std::string &session) const;
    int subscriptionRequests() const { return m_subscriptionRequests; }

    // What happened.
    int codeExchanges() const { return m_exchanges; }
    int refreshes() const { return m_refreshes; }
    int revocations() const { return m_revocations; }
    bool isAccessTokenValid(const std::string &token) const;
    // The access token stops working (as when Twitch expires it early); its
    // refresh token still works.
    void invalidateAccessToken(const std::string &token);
    // Issues tokens as a finished sign-in would, for tests that start from
    // a stored login: {access, refresh}.
    std::pair<std::string, std::string> issueTokens();

private:
    void routes();
    void helixRoutes();
    bool helixAllowed(const httplib::Request &req, httplib::Response &res);
    std::string newSecret(size_t length);

    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    int m_port = 0;
    mutable std::mutex m_mutex;
    std::map<std::string, std::string> m_codes;   // code -> redirect uri
    std::map<std::string, bool> m_accessTokens;   // token -> valid
    std::map<std::string, std::string> m_refresh; // refresh token -> access token
    std::atomic<bool> m_refuses{false};
    const int m_lifetime = 14400;
    std::atomic<int> m_exchanges{0};
    std::atomic<int> m_refreshes{0};
    std::atomic<int> m_revocations{0};
    unsigned m_counter = 0;
    User m_user;
    std::atomic<Extension> m_extension{Extension::Active};
    std::atomic<bool> m_live{false};
    std::atomic<int> m_viewers{0};
    std::atomic<int> m_subscriptionRequests{0};
    std::map<std::string, std::set<std::string>> m_sessions; // session -> subscription types
};
