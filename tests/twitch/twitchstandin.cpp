#include "twitchstandin.h"

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <random>

using nlohmann::json;

namespace {

void sendJson(httplib::Response &res, int status, const json &body)
{
    res.status = status;
    res.set_content(body.dump(), "application/json");
}

void sendError(httplib::Response &res, int status, const std::string &message)
{
    sendJson(res, status, {{"status", status}, {"message", message}});
}

std::string bearer(const httplib::Request &req, const std::string &scheme)
{
    const std::string header = req.get_header_value("Authorization");
    return header.rfind(scheme + " ", 0) == 0 ? header.substr(scheme.size() + 1) : std::string();
}

} // namespace

TwitchStandIn::TwitchStandIn() : m_server(std::make_unique<httplib::Server>())
{
    routes();
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

QString TwitchStandIn::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

std::string TwitchStandIn::newSecret(size_t length)
{
    static const char alphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    static std::mt19937 random(std::random_device{}());
    std::string secret;
    for (size_t i = 0; i < length; ++i)
        secret += alphabet[random() % (sizeof(alphabet) - 1)];
    return secret + std::to_string(++m_counter);
}

std::pair<std::string, std::string> TwitchStandIn::issueTokens()
{
    std::lock_guard lock(m_mutex);
    const std::string access = newSecret(30);
    const std::string refresh = newSecret(50);
    m_accessTokens[access] = true;
    m_refresh[refresh] = access;
    return {access, refresh};
}

void TwitchStandIn::forgetRefreshTokens()
{
    std::lock_guard lock(m_mutex);
    m_refresh.clear();
}

void TwitchStandIn::invalidateAccessToken(const std::string &token)
{
    std::lock_guard lock(m_mutex);
    m_accessTokens[token] = false;
}

bool TwitchStandIn::isAccessTokenValid(const std::string &token) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_accessTokens.find(token);
    return it != m_accessTokens.end() && it->second;
}

void TwitchStandIn::routes()
{
    m_server->Get("/oauth2/authorize", [this](const httplib::Request &req, httplib::Response &res) {
        const std::string redirect = req.get_param_value("redirect_uri");
        if (req.get_param_value("client_id") != kClientId)
            return sendError(res, 400, "invalid client");
        if (redirect != kRedirectUri)
            return sendError(res, 400, "Parameter redirect_uri does not match registered URI");
        if (req.get_param_value("response_type") != "code")
            return sendError(res, 400, "unsupported response_type");
        if (m_refuses) {
            res.set_redirect(redirect + "?error=access_denied&error_description=The+user+denied+you+access");
            return;
        }
        std::string code;
        {
            std::lock_guard lock(m_mutex);
            code = newSecret(30);
            m_codes[code] = redirect;
        }
        res.set_redirect(redirect + "?code=" + code +
                         "&scope=channel_read+channel_subscriptions+user%3Aedit%3Abroadcast");
    });

    m_server->Post("/oauth2/token", [this](const httplib::Request &req, httplib::Response &res) {
        if (req.get_param_value("client_id") != kClientId ||
            req.get_param_value("client_secret") != kClientSecret)
            return sendError(res, 403, "invalid client secret");
        const std::string grant = req.get_param_value("grant_type");
        std::lock_guard lock(m_mutex);
        std::string access, refresh;
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
            m_accessTokens[old->second] = false;
            m_refresh.erase(old);
            ++m_refreshes;
        } else {
            return sendError(res, 400, "Invalid grant type");
        }
        access = newSecret(30);
        refresh = newSecret(50);
        m_accessTokens[access] = true;
        m_refresh[refresh] = access;
        sendJson(res, 200,
                 {{"access_token", access},
                  {"expires_in", m_lifetime},
                  {"refresh_token", refresh},
                  {"scope", {"channel_read", "channel_subscriptions", "user:edit:broadcast"}},
                  {"token_type", "bearer"}});
    });

    m_server->Post("/oauth2/revoke", [this](const httplib::Request &req, httplib::Response &res) {
        if (req.get_param_value("client_id") != kClientId)
            return sendError(res, 404, "client does not exist");
        std::lock_guard lock(m_mutex);
        const auto it = m_accessTokens.find(req.get_param_value("token"));
        if (it == m_accessTokens.end() || !it->second)
            return sendError(res, 400, "Invalid token");
        it->second = false;
        for (auto refresh = m_refresh.begin(); refresh != m_refresh.end();)
            refresh = refresh->second == it->first ? m_refresh.erase(refresh) : std::next(refresh);
        ++m_revocations;
        res.status = 200;
    });

    m_server->Get("/oauth2/validate", [this](const httplib::Request &req, httplib::Response &res) {
        if (!isAccessTokenValid(bearer(req, "OAuth")))
            return sendError(res, 401, "invalid access token");
        sendJson(res, 200,
                 {{"client_id", kClientId},
                  {"login", m_user.login},
                  {"scopes", {"channel_read", "channel_subscriptions", "user:edit:broadcast"}},
                  {"user_id", m_user.id},
                  {"expires_in", m_lifetime}});
    });

    helixRoutes();

    m_server->Get("/helix/users", [this](const httplib::Request &req, httplib::Response &res) {
        if (!helixAllowed(req, res))
            return;
        json data = json::array();
        const std::string id = req.get_param_value("id");
        if (id.empty() || id == m_user.id) {
            data.push_back({{"id", m_user.id},
                            {"login", m_user.login},
                            {"display_name", m_user.displayName},
                            {"type", ""},
                            {"broadcaster_type", m_user.broadcasterType},
                            {"description", "Lenses live."},
                            {"profile_image_url", ""},
                            {"offline_image_url", ""},
                            {"view_count", 0},
                            {"created_at", "2016-12-14T20:32:28Z"}});
        }
        sendJson(res, 200, {{"data", data}});
    });
}

bool TwitchStandIn::helixAllowed(const httplib::Request &req, httplib::Response &res)
{
    if (req.get_header_value("Client-Id") == kClientId && isAccessTokenValid(bearer(req, "Bearer")))
        return true;
    sendJson(res, 401, {{"error", "Unauthorized"}, {"status", 401}, {"message", "Invalid OAuth token"}});
    return false;
}

void TwitchStandIn::openSession(const std::string &id)
{
    std::lock_guard lock(m_mutex);
    m_sessions[id];
}

void TwitchStandIn::closeSession(const std::string &id)
{
    std::lock_guard lock(m_mutex);
    m_sessions.erase(id);
}

void TwitchStandIn::moveSession(const std::string &from, const std::string &to)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_sessions.find(from);
    m_sessions[to] = it == m_sessions.end() ? std::set<std::string>() : it->second;
    if (it != m_sessions.end())
        it->second.clear();
}

std::set<std::string> TwitchStandIn::subscriptionsOf(const std::string &session) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_sessions.find(session);
    return it == m_sessions.end() ? std::set<std::string>() : it->second;
}

void TwitchStandIn::helixRoutes()
{
    m_server->Get("/helix/users/extensions/list",
                  [this](const httplib::Request &req, httplib::Response &res) {
                      if (!helixAllowed(req, res))
                          return;
                      json data = json::array();
                      data.push_back({{"id", "someone0elses0extension0abc"},
                                      {"version", "1.0.0"},
                                      {"name", "Other"},
                                      {"can_activate", true},
                                      {"type", {"panel"}}});
                      if (m_extension != Extension::None)
                          data.push_back({{"id", kClientId},
                                          {"version", "2.1.0"},
                                          {"name", "Glint Lenses"},
                                          {"can_activate", true},
                                          {"type", {"overlay", "component"}}});
                      sendJson(res, 200, {{"data", data}});
                  });

    m_server->Get("/helix/users/extensions", [this](const httplib::Request &req, httplib::Response &res) {
        if (!helixAllowed(req, res))
            return;
        const json inactive = {{"active", false}};
        json overlay = {{"1", inactive}};
        if (m_extension == Extension::Active)
            overlay["1"] = {
                {"active", true}, {"id", kClientId}, {"version", "2.1.0"}, {"name", "Glint Lenses"}};
        // An installed extension that sits in no active slot still shows up
        // in an inactive one, with its id.
        json component = {{"1", {{"active", false}, {"id", kClientId}}}, {"2", inactive}};
        sendJson(res, 200,
                 {{"data",
                   {{"panel",
                     {{"1", {{"active", true}, {"id", "someone0elses0extension0abc"}, {"version", "1.0.0"}}},
                      {"2", inactive},
                      {"3", inactive}}},
                    {"overlay", overlay},
                    {"component", component}}}});
    });

    m_server->Get("/helix/streams", [this](const httplib::Request &req, httplib::Response &res) {
        if (!helixAllowed(req, res))
            return;
        json data = json::array();
        if (m_live && req.get_param_value("user_login") == m_user.login)
            data.push_back({{"id", "40952121085"},
                            {"user_id", m_user.id},
                            {"user_login", m_user.login},
                            {"user_name", m_user.displayName},
                            {"game_id", "509658"},
                            {"type", "live"},
                            {"title", "Lenses all day"},
                            {"viewer_count", m_viewers.load()},
                            {"started_at", "2026-11-23T01:00:00Z"},
                            {"language", "en"}});
        sendJson(res, 200, {{"data", data}, {"pagination", json::object()}});
    });

    m_server->Post(
        "/helix/eventsub/subscriptions", [this](const httplib::Request &req, httplib::Response &res) {
            ++m_subscriptionRequests;
            if (!helixAllowed(req, res))
                return;
            const json body = json::parse(req.body, nullptr, false);
            static const std::set<std::string> known = {"channel.subscribe", "channel.subscription.message",
                                                        "channel.cheer"};
            if (!body.is_object() || !body.value("type", json()).is_string() ||
                !known.count(body["type"].get<std::string>()) || body.value("version", json()) != "1")
                return sendError(res, 400, "invalid subscription type or version");
            const json condition = body.value("condition", json::object());
            const json transport = body.value("transport", json::object());
            if (!condition.is_object() || condition.value("broadcaster_user_id", json()) != m_user.id)
                return sendError(res, 403, "subscription missing proper authorization");
            if (!transport.is_object() || transport.value("method", json()) != "websocket" ||
                !transport.value("session_id", json()).is_string())
                return sendError(res, 400, "invalid transport");
            const std::string type = body["type"];
            const std::string session = transport["session_id"];
            std::lock_guard lock(m_mutex);
            const auto it = m_sessions.find(session);
            if (it == m_sessions.end())
                return sendError(res, 400,
                                 "websocket transport session does not exist or has already disconnected");
            if (!it->second.insert(type).second)
                return sendError(res, 409, "subscription already exists");
            sendJson(res, 202,
                     {{"data",
                       {{{"id", newSecret(20)},
                         {"status", "enabled"},
                         {"type", type},
                         {"version", "1"},
                         {"condition", condition},
                         {"created_at", "2026-11-23T01:00:00Z"},
                         {"transport", {{"method", "websocket"}, {"session_id", session}}},
                         {"cost", 0}}}},
                      {"total", 1},
                      {"total_cost", 0},
                      {"max_total_cost", 10}});
        });
}
