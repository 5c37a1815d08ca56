#include "twitchtokenclient.h"

#include <ctime>
#include <httplib.h>

using nlohmann::json;

namespace glint::server {

namespace {

json errorBody(int status, const std::string &code, const std::string &message)
{
    return {{"error", code}, {"message", message}, {"status", status}};
}

// Adds the absolute times our client reads to Twitch's token answer.
json tokenRecord(const json &twitch)
{
    auto text = [&](const char *key) {
        const auto it = twitch.find(key);
        return it != twitch.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    const auto expires = twitch.find("expires_in");
    const long long expiresIn =
        expires != twitch.end() && expires->is_number() ? static_cast<long long>(expires->get<double>()) : 0;
    const long long issuedAt = static_cast<long long>(std::time(nullptr));
    json record = {
        {"access_token", text("access_token")},
        {"refresh_token", text("refresh_token")},
        {"token_type", "Bearer"},
        {"issued_at", issuedAt},
        {"expires_in", expiresIn},
        {"expires_at", issuedAt + expiresIn},
    };
    if (twitch.contains("scope"))
        record["scope"] = twitch["scope"];
    return record;
}

} // namespace

TwitchTokenClient::TwitchTokenClient(std::string tokenUrl, std::string clientId, std::string clientSecret)
    : m_tokenUrl(std::move(tokenUrl)), m_clientId(std::move(clientId)),
      m_clientSecret(std::move(clientSecret))
{}

TwitchTokenClient::Answer TwitchTokenClient::exchangeCode(const std::string &clientId,
                                                          const std::string &code,
                                                          const std::string &redirectUri) const
{
    return post({{"client_id", clientId},
                 {"client_secret", m_clientSecret},
                 {"code", code},
                 {"grant_type", "authorization_code"},
                 {"redirect_uri", redirectUri}});
}

TwitchTokenClient::Answer TwitchTokenClient::refresh(const std::string &clientId,
                                                     const std::string &refreshToken) const
{
    return post({{"client_id", clientId},
                 {"client_secret", m_clientSecret},
                 {"grant_type", "refresh_token"},
                 {"refresh_token", refreshToken}});
}

TwitchTokenClient::Answer
TwitchTokenClient::post(const std::vector<std::pair<std::string, std::string>> &form) const
{
    const auto schemeEnd = m_tokenUrl.find("://");
    const auto pathStart =
        schemeEnd == std::string::npos ? std::string::npos : m_tokenUrl.find('/', schemeEnd + 3);
    if (pathStart == std::string::npos)
        return {500, errorBody(500, "twitch_misconfigured", "the Twitch token URL is not valid")};

    httplib::Client client(m_tokenUrl.substr(0, pathStart));
    client.set_connection_timeout(5);
    client.set_read_timeout(10);
    httplib::Params params;
    for (const auto &[key, value] : form)
        params.emplace(key, value);
    const auto result = client.Post(m_tokenUrl.substr(pathStart).c_str(), params);
    if (!result)
        return {502, errorBody(502, "twitch_unreachable",
                               "Twitch could not be reached: " + httplib::to_string(result.error()))};

    const json answer = json::parse(result->body, nullptr, false);
    if (result->status == 200 && answer.is_object() && answer.contains("access_token"))
        return {200, tokenRecord(answer)};
    std::string message = "Twitch refused the request";
    if (answer.is_object() && answer.contains("message") && answer["message"].is_string())
        message += ": " + answer["message"].get<std::string>();
    // Twitch's 400 and 401 mean the code or token is no good; anything else
    // is Twitch failing, which our client must not treat as a bad login.
    const int status = (result->status == 400 || result->status == 401 || result->status == 403) ? 401 : 502;
    return {status, errorBody(status, "twitch_rejected", message)};
}

} // namespace glint::server
