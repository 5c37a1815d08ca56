#include "serverconfig.h"

#include <cstdlib>
#include <fstream>
#include <glintdeployment.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace glint::server {

namespace {

const std::set<std::string> kFlags = {"no-bundled-import"};

bool toInt(const std::string &value, long long min, long long max, long long &out)
{
    try {
        size_t used = 0;
        out = std::stoll(value, &used);
        return used == value.size() && out >= min && out <= max;
    } catch (...) {
        return false;
    }
}

bool toDouble(const std::string &value, double &out)
{
    try {
        size_t used = 0;
        out = std::stod(value, &used);
        return used == value.size() && out >= 0;
    } catch (...) {
        return false;
    }
}

} // namespace

ServerConfig::ServerConfig()
    : dataDir(defaultDataDir()), keyPath(GLINT_SERVER_DEFAULT_KEY), bundledLenses(defaultBundledLenses()),
      deeplinkBase("https://" + deployment(kCreatorHost) + "/unlock/?uid=")
{}

std::string ServerConfig::defaultBundledLenses()
{
    const std::string built = GLINT_SERVER_DEFAULT_BUNDLED;
    struct stat info;
    if (::stat(built.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        return built;
    char program[4096];
    const ssize_t length = ::readlink("/proc/self/exe", program, sizeof program - 1);
    if (length <= 0)
        return built;
    const std::string path(program, size_t(length));
    const std::string binDir = path.substr(0, path.find_last_of('/'));
    return binDir + "/../share/glint-camera/lenses";
}

std::string ServerConfig::defaultDataDir()
{
    const char *xdg = std::getenv("XDG_DATA_HOME");
    if (xdg && *xdg)
        return std::string(xdg) + "/glint-lens-server";
    const char *home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.local/share/glint-lens-server";
}

std::string ServerConfig::effectivePublicUrl() const
{
    return publicUrl.empty() ? "http://" + address + ":" + std::to_string(port) : publicUrl;
}

bool ServerConfig::apply(const std::string &key, const std::string &value, std::string *error)
{
    long long number = 0;
    auto bad = [&](const std::string &what) {
        *error = "--" + key + ": " + what + ", got \"" + value + "\"";
        return false;
    };
    if (key == "address")
        address = value;
    else if (key == "port") {
        if (!toInt(value, 0, 65535, number))
            return bad("expected a port from 0 to 65535");
        port = int(number);
    } else if (key == "public-url")
        publicUrl = value;
    else if (key == "data-dir")
        dataDir = value;
    else if (key == "key")
        keyPath = value;
    else if (key == "bundled-lenses")
        bundledLenses = value;
    else if (key == "no-bundled-import")
        importBundled = value != "true";
    else if (key == "rate-limit") {
        if (!toDouble(value, rateLimit))
            return bad("expected a number of requests per second, 0 for no limit");
    } else if (key == "rate-burst") {
        if (!toInt(value, 1, 1000000, number))
            return bad("expected a positive number of requests");
        rateBurst = int(number);
    } else if (key == "file-rate-limit") {
        if (!toDouble(value, fileRateLimit))
            return bad("expected a number of downloads per second, 0 for no limit");
    } else if (key == "file-rate-burst") {
        if (!toInt(value, 1, 1000000, number))
            return bad("expected a positive number of downloads");
        fileRateBurst = int(number);
    } else if (key == "rate-by") {
        if (value != "auto" && value != "address" && value != "installation")
            return bad("expected auto, address or installation");
        rateBy = value;
    } else if (key == "trusted-proxy")
        trustedProxy = value;
    else if (key == "crashes-per-hour") {
        if (!toDouble(value, crashesPerHour))
            return bad("expected a number of uploads per hour, 0 for no limit");
    } else if (key == "crash-quota") {
        if (!toInt(value, 0, 1LL << 50, number))
            return bad("expected a number of bytes");
        crashQuotaBytes = uint64_t(number);
    } else if (key == "max-connections") {
        if (!toInt(value, 1, 1000000, number))
            return bad("expected a positive number of connections");
        limits.maxConnections = unsigned(number);
    } else if (key == "max-connections-per-address") {
        if (!toInt(value, 1, 1000000, number))
            return bad("expected a positive number of connections");
        limits.maxConnectionsPerAddress = unsigned(number);
    } else if (key == "connection-memory") {
        if (!toInt(value, 4096, 1 << 24, number))
            return bad("expected 4096 bytes or more");
        limits.connectionMemory = size_t(number);
    } else if (key == "max-headers") {
        if (!toInt(value, 8, 10000, number))
            return bad("expected 8 to 10000 header lines");
        limits.maxHeaders = unsigned(number);
    } else if (key == "max-target") {
        if (!toInt(value, 64, 1 << 20, number))
            return bad("expected a number of bytes, at least 64");
        limits.maxTargetBytes = size_t(number);
    } else if (key == "max-buffered-bodies") {
        if (!toInt(value, 1024, 1LL << 40, number))
            return bad("expected a number of bytes");
        limits.maxBufferedBodies = size_t(number);
    } else if (key == "idle-timeout" || key == "header-timeout" || key == "body-timeout") {
        if (!toInt(value, 1, 86400, number))
            return bad("expected 1 to 86400 seconds");
        (key == "idle-timeout"     ? limits.idleTimeoutSeconds
         : key == "header-timeout" ? limits.headerTimeoutSeconds
                                   : limits.bodyTimeoutSeconds) = unsigned(number);
    } else if (key == "max-body") {
        if (!toInt(value, 16, 1 << 30, number))
            return bad("expected a number of bytes");
        maxBodyBytes = size_t(number);
    } else if (key == "max-analytics-body") {
        if (!toInt(value, 16, 1 << 30, number))
            return bad("expected a number of bytes");
        maxAnalyticsBytes = size_t(number);
    } else if (key == "max-crash-body") {
        if (!toInt(value, 16, 1LL << 32, number))
            return bad("expected a number of bytes");
        maxCrashBytes = size_t(number);
    } else if (key == "update-version")
        updateVersion = value;
    else if (key == "update-notes")
        updateNotes = value;
    else if (key == "update-url")
        updateUrl = value;
    else if (key == "twitch-client-id")
        twitchClientId = value;
    else if (key == "twitch-client-secret")
        twitchClientSecret = value;
    else if (key == "twitch-token-url")
        twitchTokenUrl = value;
    else if (key == "deeplink-base")
        deeplinkBase = value;
    else if (key == "threads") {
        if (!toInt(value, 1, 64, number))
            return bad("expected 1 to 64 threads");
        limits.threads = unsigned(number);
    } else {
        *error = "unknown option --" + key;
        return false;
    }
    return true;
}

bool ServerConfig::loadFile(const std::string &path, std::string *error)
{
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read configuration file " + path;
        return false;
    }
    const auto doc = nlohmann::json::parse(in, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        *error = "configuration file " + path + " is not a JSON object";
        return false;
    }
    for (const auto &[key, value] : doc.items()) {
        std::string text;
        if (value.is_string())
            text = value.get<std::string>();
        else if (value.is_boolean())
            text = value.get<bool>() ? "true" : "false";
        else if (value.is_number())
            text = value.dump();
        else {
            *error = "configuration file " + path + ": \"" + key + "\" must be a string, number or boolean";
            return false;
        }
        if (!apply(key, text, error))
            return false;
    }
    return true;
}

ServerConfig::Outcome ServerConfig::parse(const std::vector<std::string> &args,
                                          std::vector<std::string> *positional, std::string *error)
{
    std::string ignored;
    if (!error)
        error = &ignored;
    // The file is read first so that the command line overrides it.
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h")
            return Outcome::Help;
        if (args[i] == "--config") {
            if (i + 1 >= args.size()) {
                *error = "--config needs a file";
                return Outcome::Error;
            }
            if (!loadFile(args[i + 1], error))
                return Outcome::Error;
        }
    }
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (arg.rfind("--", 0) != 0) {
            if (positional)
                positional->push_back(arg);
            continue;
        }
        std::string key = arg.substr(2);
        std::string value;
        const auto equals = key.find('=');
        if (equals != std::string::npos) {
            value = key.substr(equals + 1);
            key.resize(equals);
        } else if (kFlags.count(key)) {
            value = "true";
        } else if (i + 1 < args.size()) {
            value = args[++i];
        } else {
            *error = "--" + key + " needs a value";
            return Outcome::Error;
        }
        if (key == "config")
            continue;
        if (!apply(key, value, error))
            return Outcome::Error;
    }
    return Outcome::Ok;
}

std::string ServerConfig::helpText(const std::string &program)
{
    const ServerConfig d;
    return "Usage: " + program +
           " [options]\n"
           "       " +
           program +
           " import [options] [--featured] <lens folder>...\n"
           "       " +
           program +
           " feature [options] [--position N] [--from T] [--until T] <lens id>...\n"
           "       " +
           program +
           " unfeature [options] <lens id>...\n"
           "       " +
           program +
           " remove [options] <lens id>...\n"
           "       " +
           program +
           " stats [options]\n"
           "\n"
           "Serves the Glint Camera lens catalogue under /vc/v1. The import command packs,\n"
           "signs and registers lens folders in the data directory and exits; feature and\n"
           "unfeature edit the featured list; remove takes lenses out of the catalogue;\n"
           "stats prints, as JSON, the stored usage events counted per type and per day.\n"
           "\n"
           "Options (a JSON configuration file may set the same keys without dashes):\n"
           "  --config FILE               read options from a JSON file first\n"
           "  --address ADDR              address to listen on (default " +
           d.address +
           ")\n"
           "  --port N                    port to listen on, 0 for any free port (default 8490)\n"
           "  --public-url URL            base of the addresses handed out to clients\n"
           "                              (default http://<address>:<port>)\n"
           "  --data-dir DIR              database, archives and images (default " +
           d.dataDir +
           ")\n"
           "  --key PEM                   P-384 private key that signs lenses\n"
           "                              (default " +
           d.keyPath +
           ")\n"
           "  --bundled-lenses DIR        lenses imported into an empty catalogue\n"
           "                              (default " +
           d.bundledLenses +
           ")\n"
           "  --no-bundled-import         start with an empty catalogue\n"
           "  --rate-limit N              API requests per second per client, 0 = unlimited (default 20)\n"
           "  --rate-burst N              API requests a client may make at once (default 40)\n"
           "  --file-rate-limit N         archive and image downloads per second per client (default 100)\n"
           "  --file-rate-burst N         downloads a client may make at once (default 400)\n"
           "  --rate-by WHAT              one client is: address, installation (address and\n"
           "                              installation id) or auto (installation for loopback\n"
           "                              peers, address otherwise; default)\n"
           "  --trusted-proxy ADDR        a front server whose X-Real-IP header names the client\n"
           "  --max-body BYTES            largest JSON request body (default 65536)\n"
           "  --max-analytics-body BYTES  largest analytics batch (default 4194304)\n"
           "  --max-crash-body BYTES      largest crash upload (default 16777216)\n"
           "  --crashes-per-hour N        crash uploads per client address, 0 = unlimited (default 10)\n"
           "  --crash-quota BYTES         size of the crash folder; the oldest reports are\n"
           "                              dropped to make room (default 536870912)\n"
           "  --max-connections N         open connections in all (default 1000)\n"
           "  --max-connections-per-address N  open connections per client address (default 32)\n"
           "  --connection-memory BYTES   memory of one connection: request line, headers and\n"
           "                              buffers; larger requests get 431 (default 32768)\n"
           "  --max-headers N             header lines per request (default 64)\n"
           "  --max-target BYTES          longest request target, path and query (default 4096)\n"
           "  --max-buffered-bodies BYTES request bodies held at once, all clients (default 33554432)\n"
           "  --idle-timeout S            a silent connection is closed after S seconds (default 15)\n"
           "  --header-timeout S          request line and headers must arrive within S seconds\n"
           "                              (default 10)\n"
           "  --body-timeout S            a request body must arrive within S seconds (default 30)\n"
           "  --update-version V          newest application version, as 1.2.3.4\n"
           "  --update-notes TEXT         release notes of that version\n"
           "  --update-url URL            download address of that version\n"
           "  --twitch-client-id ID       Twitch application client id\n"
           "  --twitch-client-secret S    Twitch client secret; without it Twitch sign-in is refused\n"
           "  --twitch-token-url URL      Twitch token endpoint (default " +
           d.twitchTokenUrl +
           ")\n"
           "  --deeplink-base URL         lens deep links are this followed by the lens id\n"
           "                              (default " +
           d.deeplinkBase +
           ")\n"
           "  --threads N                 connection threads (event loops, default 4)\n"
           "  --help                      show this text\n"
           "\n"
           "Import options: --featured puts the imported lenses on the featured list.\n"
           "Feature options: --position N (0 first; default after the others), --from T and\n"
           "--until T (seconds since the epoch; default always). A running server picks up\n"
           "imports and featured changes within two seconds.\n";
}

} // namespace glint::server
