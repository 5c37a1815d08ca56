#include "catalogue.h"

#include "database.h"

#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <ctime>
#include <nlohmann/json.hpp>

namespace glint::server {

namespace {

LensRecord readLens(SQLite::Statement &q)
{
    LensRecord lens;
    lens.id = q.getColumn(0).getString();
    lens.name = q.getColumn(1).getString();
    lens.author = q.getColumn(2).getString();
    lens.hintId = q.getColumn(3).getString();
    lens.status = q.getColumn(4).getString();
    lens.checksum = q.getColumn(5).getString();
    lens.signature = q.getColumn(6).getString();
    lens.archiveSize = q.getColumn(7).getInt64();
    lens.previewCount = q.getColumn(8).getInt();
    lens.previewIntervalMs = q.getColumn(9).getInt();
    const auto triggers = nlohmann::json::parse(q.getColumn(10).getString(), nullptr, false);
    if (triggers.is_array()) {
        for (const auto &trigger : triggers) {
            if (trigger.is_string())
                lens.externalTriggers.push_back(trigger.get<std::string>());
        }
    }
    lens.popularity = q.getColumn(11).getInt64();
    return lens;
}

const char *kSelect = "SELECT id, name, author, hint_id, status, checksum, signature, archive_size, "
                      "preview_count, preview_interval_ms, external_triggers, popularity FROM lenses";

} // namespace

void Catalogue::upsert(const LensRecord &lens)
{
    auto guard = m_database.lock();
    SQLite::Statement q(
        m_database.db(),
        "INSERT INTO lenses (id, name, author, hint_id, status, checksum, signature, archive_size, "
        "preview_count, preview_interval_ms, external_triggers, popularity, created_at, updated_at) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?13) "
        "ON CONFLICT(id) DO UPDATE SET name = ?2, author = ?3, hint_id = ?4, status = ?5, "
        "checksum = ?6, signature = ?7, archive_size = ?8, preview_count = ?9, "
        "preview_interval_ms = ?10, external_triggers = ?11, updated_at = ?13");
    q.bind(1, lens.id);
    q.bind(2, lens.name);
    q.bind(3, lens.author);
    q.bind(4, lens.hintId);
    q.bind(5, lens.status);
    q.bind(6, lens.checksum);
    q.bind(7, lens.signature);
    q.bind(8, static_cast<int64_t>(lens.archiveSize));
    q.bind(9, lens.previewCount);
    q.bind(10, lens.previewIntervalMs);
    q.bind(11, nlohmann::json(lens.externalTriggers).dump());
    q.bind(12, static_cast<int64_t>(lens.popularity));
    q.bind(13, static_cast<int64_t>(std::time(nullptr)));
    q.exec();
}

bool Catalogue::remove(const std::string &id)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "DELETE FROM lenses WHERE id = ?");
    q.bind(1, id);
    return q.exec() > 0;
}

std::vector<LensRecord> Catalogue::all()
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), std::string(kSelect) + " ORDER BY id");
    std::vector<LensRecord> lenses;
    while (q.executeStep())
        lenses.push_back(readLens(q));
    return lenses;
}

std::optional<LensRecord> Catalogue::find(const std::string &id)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), std::string(kSelect) + " WHERE id = ?");
    q.bind(1, id);
    if (!q.executeStep())
        return std::nullopt;
    return readLens(q);
}

int Catalogue::count()
{
    auto guard = m_database.lock();
    return m_database.db().execAndGet("SELECT COUNT(*) FROM lenses").getInt();
}

void Catalogue::addPopularity(const std::string &id, int64_t delta)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "UPDATE lenses SET popularity = popularity + ? WHERE id = ?");
    q.bind(1, static_cast<int64_t>(delta));
    q.bind(2, id);
    q.exec();
}

void Catalogue::setSignature(const std::string &id, const std::string &signature)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "UPDATE lenses SET signature = ? WHERE id = ?");
    q.bind(1, signature);
    q.bind(2, id);
    q.exec();
}

std::string Catalogue::stateValue(const std::string &key)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "SELECT value FROM server_state WHERE key = ?");
    q.bind(1, key);
    return q.executeStep() ? q.getColumn(0).getString() : std::string();
}

void Catalogue::setStateValue(const std::string &key, const std::string &value)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "INSERT INTO server_state (key, value) VALUES (?1, ?2) "
                                         "ON CONFLICT(key) DO UPDATE SET value = ?2");
    q.bind(1, key);
    q.bind(2, value);
    q.exec();
}

void Catalogue::schedule(const std::string &id, int position, int64_t startsAt, int64_t endsAt)
{
    auto guard = m_database.lock();
    SQLite::Transaction transaction(m_database.db());
    SQLite::Statement remove(m_database.db(), "DELETE FROM schedule WHERE lens_id = ?");
    remove.bind(1, id);
    remove.exec();
    // Insert before whatever holds the position now.
    SQLite::Statement shift(m_database.db(),
                            "UPDATE schedule SET position = position + 1 WHERE position >= ?");
    shift.bind(1, position);
    shift.exec();
    SQLite::Statement q(m_database.db(),
                        "INSERT INTO schedule (lens_id, position, starts_at, ends_at) VALUES (?, ?, ?, ?)");
    q.bind(1, id);
    q.bind(2, position);
    q.bind(3, static_cast<int64_t>(startsAt));
    if (endsAt > 0)
        q.bind(4, static_cast<int64_t>(endsAt));
    else
        q.bind(4);
    q.exec();
    transaction.commit();
}

void Catalogue::unschedule(const std::string &id)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "DELETE FROM schedule WHERE lens_id = ?");
    q.bind(1, id);
    q.exec();
}

std::vector<std::string> Catalogue::featuredAt(int64_t now)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "SELECT lens_id FROM schedule WHERE starts_at <= ?1 AND "
                                         "(ends_at IS NULL OR ends_at > ?1) ORDER BY position, id");
    q.bind(1, static_cast<int64_t>(now));
    std::vector<std::string> ids;
    while (q.executeStep())
        ids.push_back(q.getColumn(0).getString());
    return ids;
}

} // namespace glint::server
