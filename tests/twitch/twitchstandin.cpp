#include "twitchstandin.h"

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <random>

using httplib::Request;
using httplib::Response;
using nlohmann::json;

namespace {

void sendJson(Response &res, int status, const json &body)
{
    res.status = status;
    res.set_content(body.dump(), "application/json");
}

void sendError(Response &res, int status, const std::string &message)
{
    sendJson(res, status, {{"status", status}, {"message", message}});
}

std::string credential(const Request &req, const std::string &scheme)
{
    const std::string header = req.get_header_value("Authorization");
    return header.rfind(scheme + " ", 0) == 0 ? header.substr(scheme.size() + 1) : std::string();
}

const json kScopes = {"channel_read", "channel_subscriptions", "user:edit:broadcast"};

} // namespace

TwitchStandIn::TwitchStandIn() : m_server(std::make_unique<httplib::Server>())
{
    authRoutes();
    helixRoutes();
}

TwitchStandIn::~TwitchStandIn()
{
    m_server->stop();
    if (m_thread.joinable())
        m_thread.join();
}

bool TwitchStandIn::start()
{
    m_port = m_server->bind_to_any_port("127.0.0.1");
    if (m_port <= 0)
        return false;
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return true;
}

std::string TwitchStandIn::newSecret(size_t length)
{
    static std::mt19937 random(std::random_device{}());
    std::string secret;
    while (secret.size() < length)
        secret += "abcdefghijklmnopqrstuvwxyz0123456789"[random() % 36];
    return secret + std::to_string(++m_counter);
}

std::pair<std::string, std::string> TwitchStandIn::issueLocked()
{
    const std::string access = newSecret(30), refresh = newSecret(50);
    m_validTokens.insert(access);
    m_refresh[refresh] = access;
    return {access, refresh};
}

std::pair<std::string, std::string> TwitchStandIn::issueTokens()
{
    std::lock_guard lock(m_mutex);
    return issueLocked();
}

void TwitchStandIn::forgetRefreshTokens()
{
    std::lock_guard lock(m_mutex);
    m_refresh.clear();
}

void TwitchStandIn::invalidateAccessToken(const std::string &token)
{
    std::lock_guard lock(m_mutex);
    m_validTokens.erase(token);
}

bool TwitchStandIn::isAccessTokenValid(const std::string &token) const
{
    std::lock_guard lock(m_mutex);
    return m_validTokens.count(token) > 0;
}

void TwitchStandIn::moveSession(const std::string &from, const std::string &to)
{
    std::lock_guard lock(m_mutex);
    std::set<std::string> subscriptions;
    if (const auto it = m_sessions.find(from); it != m_sessions.end())
        subscriptions.swap(it->second);
    if (from.empty() || to.empty())
        m_sessions.erase(from);
    if (!to.empty())
        m_sessions[to] = subscriptions;
}

std::set<std::string> TwitchStandIn::subscriptionsOf(const std::string &session) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_sessions.find(session);
    return it == m_sessions.end() ? std::set<std::string>() : it->second;
}

void TwitchStandIn::authRoutes()
{
    m_server->Get("/oauth2/authorize", [this](const Request &req, Response &res) {
        const std::string redirect = req.get_param_value("redirect_uri");
        if (req.get_param_value("client_id") != kClientId || redirect != kRedirectUri ||
            req.get_param_value("response_type") != "code")
            return sendError(res, 400, "invalid client, redirect_uri or response_type");
        if (m_refuses)
            return res.set_redirect(redirect +
                                    "?error=access_denied&error_description=The+user+denied+you+access");
        std::lock_guard lock(m_mutex);
        const std::string code = newSecret(30);
        m_codes[code] = redirect;
        res.set_redirect(redirect + "?code=" + code + "&scope=channel_read+channel_subscriptions");
    });

    m_server->Post("/oauth2/token", [this](const Request &req, Response &res) {
        if (req.get_param_value("client_id") != kClientId ||
            req.get_param_value("client_secret") != kClientSecret)
            return sendError(res, 403, "invalid client secret");
        const std::string grant = req.get_param_value("grant_type");
        std::lock_guard lock(m_mutex);
        if (grant == "authorization_code") {
            const auto code = m_codes.find(req.get_param_value("code"));
            if (code == m_codes.end() || code->second != req.get_param_value("redirect_uri"))
                return sendError(res, 400, "Invalid authorization code");
            m_codes.erase(code);
            ++m_exchanges;
        } else if (grant == "refresh_token") {
            const auto old = m_refresh.find(req.get_param_value("refresh_token"));
            if (old == m_refresh.end())
                return sendError(res, 400, "Invalid refresh token");
            m_validTokens.erase(old->second);
            m_refresh.erase(old);
            ++m_refreshes;
        } else {
            return sendError(res, 400, "Invalid grant type");
        }
        const auto [access, refresh] = issueLocked();
        json answer = {{"access_token", access}, {"refresh_token", refresh}, {"scope", kScopes}};
        answer.update(json::parse(R"({"expires_in": 14400, "token_type": "bearer"})"));
        sendJson(res, 200, answer);
    });

    m_server->Post("/oauth2/revoke", [this](const Request &req, Response &res) {
        if (req.get_param_value("client_id") != kClientId)
            return sendError(res, 404, "client does not exist");
        std::lock_guard lock(m_mutex);
        const std::string token = req.get_param_value("token");
        if (!m_validTokens.erase(token))
            return sendError(res, 400, "Invalid token");
        for (auto refresh = m_refresh.begin(); refresh != m_refresh.end();)
            refresh = refresh->second == token ? m_refresh.erase(refresh) : std::next(refresh);
        ++m_revocations;
    });

    m_server->Get("/oauth2/validate", [this](const Request &req, Response &res) {
        if (!isAccessTokenValid(credential(req, "OAuth")))
            return sendError(res, 401, "invalid access token");
        json answer = {{"client_id", kClientId}, {"login", m_user.login}, {"user_id", m_user.id}};
        answer.update({{"scopes", kScopes}, {"expires_in", 14400}});
        sendJson(res, 200, answer);
    });
}

void TwitchStandIn::helixRoutes()
{
    // Helix answers a known client with a valid token only.
    const auto helix = [this](const char *path, auto handler) {
        const auto checked = [this, handler](const Request &req, Response &res) {
            if (req.get_header_value("Client-Id") != kClientId ||
                !isAccessTokenValid(credential(req, "Bearer")))
                return sendJson(res, 401,
                                {{"error", "Unauthorized"}, {"status", 401}, {"message", "Invalid token"}});
            handler(req, res);
        };
        if (std::string(path) == "/helix/eventsub/subscriptions")
            m_server->Post(path, checked);
        else
            m_server->Get(path, checked);
    };

    helix("/helix/users", [this](const Request &req, Response &res) {
        json data = json::array();
        if (req.get_param_value("id").empty() || req.get_param_value("id") == m_user.id)
            data.push_back(
                {{"id", m_user.id}, {"login", m_user.login}, {"display_name", m_user.displayName}});
        if (!data.empty())
            data[0].update(json::parse(R"({"type": "", "broadcaster_type": "affiliate", "view_count": 0})"));
        sendJson(res, 200, {{"data", data}});
    });

    // Someone else's extension sits beside ours, in an active slot; ours,
    // when installed but not activated, sits in an inactive slot.
    helix("/helix/users/extensions/list", [this](const Request &, Response &res) {
        json data =
            json::parse(R"([{"id": "someone0elses0extension0abc", "name": "Other", "type": ["panel"]}])");
        if (m_extension != Extension::None)
            data.push_back({{"id", kClientId}, {"name", "Glint Lenses"}, {"type", {"overlay", "component"}}});
        sendJson(res, 200, {{"data", data}});
    });
    helix("/helix/users/extensions", [this](const Request &, Response &res) {
        json data = json::parse(R"({"panel": {"1": {"active": true, "id": "someone0elses0extension0abc"},
                                               "2": {"active": false}},
                                    "overlay": {"1": {"active": false}}, "component": {"2": {"active": false}}})");
        data["component"]["1"] = {{"active", false}, {"id", kClientId}};
        if (m_extension == Extension::Active)
            data["overlay"]["1"] = {{"active", true}, {"id", kClientId}, {"version", "2.1.0"}};
        sendJson(res, 200, {{"data", data}});
    });

    helix("/helix/streams", [](const Request &, Response &res) {
        sendJson(res, 200, json::parse(R"({"data": [], "pagination": {}})"));
    });

    helix("/helix/eventsub/subscriptions", [this](const Request &req, Response &res) {
        ++m_subscriptionRequests;
        const json body = json::parse(req.body, nullptr, false);
        static const std::set<std::string> known = {"channel.subscribe", "channel.subscription.message",
                                                    "channel.cheer"};
        const json type = body.is_object() ? body.value("type", json()) : json();
        if (!type.is_string() || !known.count(type.get<std::string>()) ||
            body.value("version", json()) != "1")
            return sendError(res, 400, "invalid subscription type or version");
        const json condition = body.value("condition", json::object());
        const json transport = body.value("transport", json::object());
        if (!condition.is_object() || condition.value("broadcaster_user_id", json()) != m_user.id)
            return sendError(res, 403, "subscription missing proper authorization");
        if (!transport.is_object() || transport.value("method", json()) != "websocket" ||
            !transport.value("session_id", json()).is_string())
            return sendError(res, 400, "invalid transport");
        std::lock_guard lock(m_mutex);
        const auto session = m_sessions.find(transport["session_id"].get<std::string>());
        if (session == m_sessions.end())
            return sendError(res, 400,
                             "websocket transport session does not exist or has already disconnected");
        if (!session->second.insert(type.get<std::string>()).second)
            return sendError(res, 409, "subscription already exists");
        json created = body;
        created.update({{"id", newSecret(20)}, {"status", "enabled"}, {"cost", 0}});
        sendJson(res, 202, {{"data", json::array({created})}, {"total", 1}, {"max_total_cost", 10}});
    });
}
