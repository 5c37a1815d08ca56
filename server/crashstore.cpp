#include "crashstore.h"

#include "database.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;
using nlohmann::json;

namespace glint::server {

namespace {

// Form names become file names: anything unusual turns into '_'.
std::string safeName(const std::string &name, size_t index)
{
    std::string out = std::to_string(index) + "-";
    for (const char c : name.substr(0, 64)) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                           c == '.' || c == '-' || c == '_';
        out.push_back(plain ? c : '_');
    }
    return out;
}

// Texts from the client go into the JSON row; invalid UTF-8 is replaced.
std::string printable(const std::string &text)
{
    return json(text.substr(0, 256)).dump(-1, ' ', false, json::error_handler_t::replace);
}

int64_t now()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

CrashStore::CrashStore(Database &database, std::string folder, uint64_t quotaBytes)
    : m_database(database), m_folder(std::move(folder)), m_quota(quotaBytes)
{}

// A folder name no other report uses, also across restarts; names sort by time.
std::string CrashStore::uniqueName()
{
    static std::atomic<unsigned> counter{0};
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(time).count()) + "-" +
           std::to_string(counter++);
}

uint64_t CrashStore::usedBytes()
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "SELECT COALESCE(SUM(size), 0) FROM crash_reports");
    return q.executeStep() ? uint64_t(q.getColumn(0).getInt64()) : 0;
}

void CrashStore::forget(int64_t id, const std::string &folder)
{
    // Only a folder directly inside the crash folder, as this store names them.
    const fs::path path(folder);
    std::error_code ec;
    if (path.parent_path() == fs::path(m_folder) && !path.filename().empty() &&
        path.filename().string().find_first_not_of("0123456789-") == std::string::npos)
        fs::remove_all(path, ec);
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "DELETE FROM crash_reports WHERE id = ?");
    q.bind(1, id);
    q.exec();
}

bool CrashStore::makeRoom(uint64_t bytes)
{
    if (bytes > m_quota)
        return false;
    uint64_t used = usedBytes();
    while (used + bytes > m_quota) {
        int64_t id = 0;
        int64_t size = 0;
        std::string folder;
        {
            auto guard = m_database.lock();
            SQLite::Statement q(m_database.db(),
                                "SELECT id, size, file FROM crash_reports ORDER BY id LIMIT 1");
            if (!q.executeStep())
                return false;
            id = q.getColumn(0).getInt64();
            size = q.getColumn(1).getInt64();
            folder = q.getColumn(2).getString();
        }
        forget(id, folder);
        used -= std::min<uint64_t>(used, uint64_t(size));
    }
    return true;
}

int64_t CrashStore::store(const std::string &path, const std::vector<FormPart> &parts, std::string *error)
{
    std::lock_guard guard(m_mutex);
    uint64_t total = 0;
    for (const auto &part : parts)
        total += part.content.size();
    if (!makeRoom(total)) {
        *error = "the crash report is larger than the crash folder's quota";
        return -1;
    }
    const fs::path dir = fs::path(m_folder) / uniqueName();
    std::error_code ec;
    fs::create_directories(dir, ec);
    json list = json::array();
    for (const auto &part : parts) {
        const std::string file = safeName(part.name, list.size());
        std::ofstream out(dir / file, std::ios::binary);
        out.write(part.content.data(), std::streamsize(part.content.size()));
        if (!out.flush()) {
            fs::remove_all(dir, ec);
            *error = "the crash report could not be written";
            return -1;
        }
        list.push_back({{"name", json::parse(printable(part.name))},
                        {"filename", json::parse(printable(part.filename))},
                        {"content_type", json::parse(printable(part.contentType))},
                        {"size", part.content.size()},
                        {"file", file}});
    }
    auto lock = m_database.lock();
    SQLite::Statement q(m_database.db(), "INSERT INTO crash_reports (path, parts, size, file, received_at) "
                                         "VALUES (?, ?, ?, ?, ?)");
    q.bind(1, path);
    q.bind(2, list.dump());
    q.bind(3, int64_t(total));
    q.bind(4, dir.string());
    q.bind(5, now());
    q.exec();
    return m_database.db().getLastInsertRowid();
}

} // namespace glint::server
