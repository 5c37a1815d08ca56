#include "database.h"

#include <SQLiteCpp/Transaction.h>
#include <vector>

namespace glint::server {

namespace {

// Each entry moves the schema from version i to i + 1. Never edit a shipped
// entry; append a new one.
const std::vector<const char *> kMigrations = {
    R"sql(
    CREATE TABLE lenses (
        id TEXT PRIMARY KEY,
        name TEXT NOT NULL,
        author TEXT NOT NULL,
        hint_id TEXT NOT NULL DEFAULT '',
        status TEXT NOT NULL DEFAULT 'Live',
        checksum TEXT NOT NULL,
        signature TEXT NOT NULL,
        archive_size INTEGER NOT NULL,
        preview_count INTEGER NOT NULL DEFAULT 0,
        preview_interval_ms INTEGER NOT NULL DEFAULT 0,
        external_triggers TEXT NOT NULL DEFAULT '[]',
        popularity INTEGER NOT NULL DEFAULT 0,
        created_at INTEGER NOT NULL,
        updated_at INTEGER NOT NULL
    );
    CREATE TABLE schedule (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        lens_id TEXT NOT NULL REFERENCES lenses(id) ON DELETE CASCADE,
        position INTEGER NOT NULL DEFAULT 0,
        starts_at INTEGER NOT NULL DEFAULT 0,
        ends_at INTEGER
    );
    CREATE TABLE reports (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        lens_id TEXT NOT NULL,
        reason_id TEXT NOT NULL,
        context TEXT NOT NULL,
        installation_id TEXT NOT NULL,
        received_at INTEGER NOT NULL
    );
    CREATE TABLE stream_events (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        action TEXT NOT NULL,
        client_ts INTEGER NOT NULL,
        is_subscribe_enabled INTEGER NOT NULL,
        payload TEXT NOT NULL,
        token_sha256 TEXT NOT NULL,
        installation_id TEXT NOT NULL,
        received_at INTEGER NOT NULL
    );
    CREATE TABLE analytics_batches (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        installation_id TEXT NOT NULL,
        size INTEGER NOT NULL,
        body BLOB NOT NULL,
        received_at INTEGER NOT NULL
    );
    )sql",
    R"sql(
    CREATE INDEX lenses_by_popularity ON lenses(popularity DESC, name);
    CREATE INDEX schedule_by_lens ON schedule(lens_id);
    CREATE INDEX reports_by_lens ON reports(lens_id);
    )sql",
    R"sql(
    CREATE TABLE server_state (
        key TEXT PRIMARY KEY,
        value TEXT NOT NULL
    );
    )sql",
    R"sql(
    CREATE TABLE crash_reports (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        path TEXT NOT NULL,
        parts TEXT NOT NULL,
        size INTEGER NOT NULL,
        file TEXT NOT NULL,
        received_at INTEGER NOT NULL
    );
    )sql",
};

} // namespace

Database::Database(const std::string &path)
    : m_db(path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_FULLMUTEX)
{
    m_db.exec("PRAGMA journal_mode=WAL");
    m_db.exec("PRAGMA foreign_keys=ON");
    m_db.setBusyTimeout(5000);
    migrate();
}

int Database::latestSchemaVersion()
{
    return int(kMigrations.size());
}

int Database::schemaVersion()
{
    return m_db.execAndGet("PRAGMA user_version").getInt();
}

int64_t Database::dataVersion()
{
    auto guard = lock();
    return m_db.execAndGet("PRAGMA data_version").getInt64();
}

void Database::migrate()
{
    for (int version = schemaVersion(); version < latestSchemaVersion(); ++version) {
        SQLite::Transaction transaction(m_db);
        m_db.exec(kMigrations[size_t(version)]);
        m_db.exec("PRAGMA user_version = " + std::to_string(version + 1));
        transaction.commit();
    }
}

} // namespace glint::server
