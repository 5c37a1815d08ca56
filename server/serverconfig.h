#pragma once

#include "httplimits.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace glint::server {

// Settings of the lens server, from a JSON file (--config) and then the
// command line, which wins. File keys are the option names without dashes.
struct ServerConfig
{
    std::string address = "127.0.0.1";
    int port = 8490;
    std::string publicUrl; // empty: http://<address>:<port>
    std::string dataDir;
    std::string keyPath;
    std::string bundledLenses;
    bool importBundled = true;
    double rateLimit = 20; // API requests per second per client; 0 switches the limit off
    int rateBurst = 40;
    double fileRateLimit = 100; // archive and image downloads per second per client
    int fileRateBurst = 400;
    // Who counts as one client: "address", "installation" (address and
    // installation id) or "auto" (installation for loopback peers, which are
    // the local application or a local front server, address otherwise).
    std::string rateBy = "auto";
    std::string trustedProxy;                        // a peer whose X-Real-IP header names the client
    size_t maxBodyBytes = 64 * 1024;                 // JSON requests
    size_t maxAnalyticsBytes = 4 * 1024 * 1024;      // analytics batches
    size_t maxCrashBytes = 16 * 1024 * 1024;         // crash uploads
    double crashesPerHour = 10;                      // crash uploads per client address
    uint64_t crashQuotaBytes = 512ull * 1024 * 1024; // the crash folder; oldest reports go first
    HttpLimits limits;
    std::string updateVersion;
    std::string updateNotes;
    std::string updateUrl;
    std::string twitchClientId;
    std::string twitchClientSecret;
    std::string twitchTokenUrl = "https://id.twitch.tv/oauth2/token";
    std::string deeplinkBase;

    enum class Outcome { Ok, Help, Error };

    ServerConfig();
    // Parses options; other words are returned in positional. A problem sets
    // error and yields Error.
    Outcome parse(const std::vector<std::string> &args, std::vector<std::string> *positional,
                  std::string *error);
    std::string effectivePublicUrl() const;
    static std::string defaultDataDir();
    // The source tree's sample lenses when they are there (a build tree),
    // else share/glint-camera/lenses beside the program's bin folder.
    static std::string defaultBundledLenses();
    static std::string helpText(const std::string &program);

private:
    bool apply(const std::string &key, const std::string &value, std::string *error);
    bool loadFile(const std::string &path, std::string *error);
};

} // namespace glint::server
