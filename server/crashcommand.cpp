#include "crashcommand.h"

#include "serverconfig.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

namespace fs = std::filesystem;
using nlohmann::json;

namespace glint::server {

namespace {

constexpr int kListLimit = 1000;
constexpr size_t kShownTextBytes = 64 * 1024;

struct StoredReport
{
    int64_t id = 0;
    std::string path;
    json parts = json::array();
    int64_t size = 0;
    std::string folder;
    int64_t receivedAt = 0;
};

std::string isoTime(int64_t seconds)
{
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

StoredReport readRow(SQLite::Statement &q)
{
    StoredReport report;
    report.id = q.getColumn(0).getInt64();
    report.path = q.getColumn(1).getString();
    // The stored list is ours, but a damaged row must not stop the listing.
    report.parts = json::parse(q.getColumn(2).getString(), nullptr, false);
    if (!report.parts.is_array())
        report.parts = json::array();
    report.size = q.getColumn(3).getInt64();
    report.folder = q.getColumn(4).getString();
    report.receivedAt = q.getColumn(5).getInt64();
    return report;
}

std::string text(const json &part, const char *key)
{
    const auto found = part.find(key);
    return found != part.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// The part's file, only when it is a plain name inside the crash folders.
std::optional<fs::path> partFile(const ServerConfig &config, const StoredReport &report, const json &part)
{
    const std::string name = text(part, "file");
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return std::nullopt;
    std::error_code ec;
    const fs::path root = fs::weakly_canonical(fs::path(config.dataDir) / "crashes", ec);
    const fs::path folder = fs::weakly_canonical(report.folder, ec);
    if (ec || folder.parent_path() != root)
        return std::nullopt;
    return folder / name;
}

std::string readStart(const fs::path &file, size_t limit)
{
    std::ifstream in(file, std::ios::binary);
    std::string out(limit, '\0');
    in.read(out.data(), std::streamsize(limit));
    out.resize(size_t(in.gcount()));
    return out;
}

std::vector<StoredReport> reports(SQLite::Database &db)
{
    std::vector<StoredReport> out;
    SQLite::Statement q(db, "SELECT id, path, parts, size, file, received_at FROM crash_reports "
                            "ORDER BY id DESC LIMIT ?");
    q.bind(1, kListLimit);
    while (q.executeStep())
        out.push_back(readRow(q));
    return out;
}

std::optional<StoredReport> report(SQLite::Database &db, const std::string &idText)
{
    int64_t id = 0;
    try {
        size_t used = 0;
        id = std::stoll(idText, &used);
        if (used != idText.size())
            return std::nullopt;
    } catch (...) {
        return std::nullopt;
    }
    SQLite::Statement q(db,
                        "SELECT id, path, parts, size, file, received_at FROM crash_reports WHERE id = ?");
    q.bind(1, id);
    if (!q.executeStep())
        return std::nullopt;
    return readRow(q);
}

int list(SQLite::Database &db, bool asJson)
{
    json all = json::array();
    for (const StoredReport &r : reports(db)) {
        if (asJson) {
            all.push_back({{"id", r.id},
                           {"path", r.path},
                           {"size", r.size},
                           {"received_at", r.receivedAt},
                           {"parts", r.parts}});
            continue;
        }
        std::string names;
        for (const json &part : r.parts)
            names += (names.empty() ? "" : ", ") + text(part, "name");
        std::cout << r.id << "  " << isoTime(r.receivedAt) << "  " << r.size << " bytes  " << r.path
                  << "  parts: " << names << "\n";
    }
    if (asJson)
        std::cout << all.dump(2) << "\n";
    return 0;
}

int show(const ServerConfig &config, const StoredReport &r)
{
    std::cout << "crash report " << r.id << "\nreceived: " << isoTime(r.receivedAt) << "\npath: " << r.path
              << "\nsize: " << r.size << " bytes\nparts:\n";
    for (const json &part : r.parts) {
        std::cout << "  " << text(part, "name") << "  file name \"" << text(part, "filename") << "\"  type \""
                  << text(part, "content_type") << "\"  " << (part.value("size", 0)) << " bytes\n";
    }
    for (const json &part : r.parts) {
        const std::string name = text(part, "name");
        if (name != "description" && name != "userID")
            continue;
        if (const auto file = partFile(config, r, part))
            std::cout << "\n" << name << ":\n" << readStart(*file, kShownTextBytes) << "\n";
    }
    return 0;
}

int part(const ServerConfig &config, const StoredReport &r, const std::string &name)
{
    for (const json &entry : r.parts) {
        if (text(entry, "name") != name)
            continue;
        const auto file = partFile(config, r, entry);
        std::ifstream in(file ? *file : fs::path(), std::ios::binary);
        if (!file || !in) {
            std::cerr << "The part \"" << name << "\" of report " << r.id << " can't be read.\n";
            return 1;
        }
        std::cout << in.rdbuf();
        return 0;
    }
    std::cerr << "Report " << r.id << " has no part \"" << name << "\".\n";
    return 1;
}

} // namespace

int CrashCommand::run(const ServerConfig &config, const std::vector<std::string> &args)
{
    const std::string verb = args.empty() ? "list" : args[0];
    const fs::path databasePath = fs::path(config.dataDir) / "lenses.db";
    if (!fs::exists(databasePath)) {
        std::cerr << "No server data at " << config.dataDir << " (no crash reports).\n";
        return verb == "list" || verb == "json" ? 0 : 1;
    }
    SQLite::Database db(databasePath.string(), SQLite::OPEN_READONLY);
    db.setBusyTimeout(2000);
    if ((verb == "list" || verb == "json") && args.size() <= 1)
        return list(db, verb == "json");
    if ((verb == "show" && args.size() == 2) || (verb == "part" && args.size() == 3)) {
        const auto found = report(db, args[1]);
        if (!found) {
            std::cerr << "No crash report " << args[1] << ".\n";
            return 1;
        }
        return verb == "show" ? show(config, *found) : part(config, *found, args[2]);
    }
    std::cerr << "usage: glint-lens-server crashes [list | json | show ID | part ID NAME] [--data-dir DIR]\n";
    return 2;
}

} // namespace glint::server
