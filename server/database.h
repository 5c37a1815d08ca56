#pragma once

#include <SQLiteCpp/Database.h>
#include <cstdint>
#include <mutex>
#include <string>

namespace glint::server {

// The server's SQLite file. Opening it brings the schema up to the newest
// version, one migration at a time inside a transaction, recorded in
// PRAGMA user_version. All access goes through lock(): one connection is
// shared by the request threads and writes are short.
class Database
{
public:
    explicit Database(const std::string &path);

    int schemaVersion();
    // Changes whenever another connection (another process) commits.
    int64_t dataVersion();
    static int latestSchemaVersion();

    std::unique_lock<std::mutex> lock() { return std::unique_lock<std::mutex>(m_mutex); }
    SQLite::Database &db() { return m_db; }

private:
    void migrate();

    SQLite::Database m_db;
    std::mutex m_mutex;
};

} // namespace glint::server
