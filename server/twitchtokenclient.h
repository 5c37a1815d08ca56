#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace glint::server {

// Exchanges authorization codes and refresh tokens at Twitch's token
// endpoint with the client secret, which never leaves the server.
class TwitchTokenClient
{
public:
    struct Answer
    {
        int status = 0;      // status for our own client
        nlohmann::json body; // the token record or a JSON error
    };

    TwitchTokenClient(std::string tokenUrl, std::string clientId, std::string clientSecret);

    bool isConfigured() const { return !m_clientSecret.empty(); }
    const std::string &clientId() const { return m_clientId; }

    Answer exchangeCode(const std::string &clientId, const std::string &code,
                        const std::string &redirectUri) const;
    Answer refresh(const std::string &clientId, const std::string &refreshToken) const;

private:
    Answer post(const std::vector<std::pair<std::string, std::string>> &form) const;

    std::string m_tokenUrl;
    std::string m_clientId;
    std::string m_clientSecret;
};

} // namespace glint::server
