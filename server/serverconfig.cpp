#include "serverconfig.h"

#include <cstdlib>
#include <fstream>
#include <glintdeployment.h>
#include <nlohmann/json.hpp>
#include <set>

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
    : dataDir(defaultDataDir()), keyPath(GLINT_SERVER_DEFAULT_KEY),
      bundledLenses(GLINT_SERVER_DEFAULT_BUNDLED),
      deeplinkBase("https://" + deployment(kCreatorHost) + "/unlock/?uid=")
{}

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
        if (!toInt(value, 1, 1024, number))
            return bad("expected 1 to 1024 threads");
        threads = int(number);
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
           "  --rate-limit N              requests per second per client, 0 = unlimited (default 20)\n"
           "  --rate-burst N              requests a client may make at once (default 40)\n"
           "  --max-body BYTES            largest JSON request body (default 65536)\n"
           "  --max-analytics-body BYTES  largest analytics batch (default 4194304)\n"
           "  --max-crash-body BYTES      largest crash upload (default 33554432)\n"
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
           "  --threads N                 request threads (default 32)\n"
           "  --help                      show this text\n"
           "\n"
           "Import options: --featured puts the imported lenses on the featured list.\n"
           "Feature options: --position N (0 first; default after the others), --from T and\n"
           "--until T (seconds since the epoch; default always). A running server picks up\n"
           "imports and featured changes within two seconds.\n";
}

} // namespace glint::server
