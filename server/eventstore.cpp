#include "eventstore.h"

#include "database.h"

#include <SQLiteCpp/Statement.h>
#include <ctime>

namespace glint::server {

namespace {
int64_t now()
{
    return static_cast<int64_t>(std::time(nullptr));
}
} // namespace

int64_t EventStore::addReport(const std::string &lensId, const std::string &reasonId,
                              const std::string &context, const std::string &installationId)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "INSERT INTO reports (lens_id, reason_id, context, installation_id, "
                                         "received_at) VALUES (?, ?, ?, ?, ?)");
    q.bind(1, lensId);
    q.bind(2, reasonId);
    q.bind(3, context);
    q.bind(4, installationId);
    q.bind(5, now());
    q.exec();
    return m_database.db().getLastInsertRowid();
}

int64_t EventStore::addStreamEvent(const StreamEventRecord &event)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(),
                        "INSERT INTO stream_events (action, client_ts, is_subscribe_enabled, payload, "
                        "token_sha256, installation_id, received_at) VALUES (?, ?, ?, ?, ?, ?, ?)");
    q.bind(1, event.action);
    q.bind(2, static_cast<int64_t>(event.clientTs));
    q.bind(3, event.isSubscribeEnabled ? 1 : 0);
    q.bind(4, event.payloadJson);
    q.bind(5, event.tokenSha256);
    q.bind(6, event.installationId);
    q.bind(7, now());
    q.exec();
    return m_database.db().getLastInsertRowid();
}

int64_t EventStore::addAnalyticsBatch(const std::string &installationId, const std::string &body)
{
    auto guard = m_database.lock();
    SQLite::Statement q(m_database.db(), "INSERT INTO analytics_batches (installation_id, size, body, "
                                         "received_at) VALUES (?, ?, ?, ?)");
    q.bind(1, installationId);
    q.bind(2, static_cast<int64_t>(body.size()));
    q.bind(3, body.data(), int(body.size()));
    q.bind(4, now());
    q.exec();
    return m_database.db().getLastInsertRowid();
}

} // namespace glint::server
