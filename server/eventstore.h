#pragma once

#include <cstdint>
#include <string>

namespace glint::server {

class Database;

struct StreamEventRecord
{
    std::string action;
    int64_t clientTs = 0;
    bool isSubscribeEnabled = false;
    std::string payloadJson;
    std::string tokenSha256; // the access token itself is never stored
    std::string installationId;
};

// What clients send us: lens reports, stream events, analytics batches
// (crash reports have a store of their own, CrashStore).
// Each add returns the new row's id.
class EventStore
{
public:
    explicit EventStore(Database &database) : m_database(database) {}

    int64_t addReport(const std::string &lensId, const std::string &reasonId, const std::string &context,
                      const std::string &installationId);
    int64_t addStreamEvent(const StreamEventRecord &event);
    int64_t addAnalyticsBatch(const std::string &installationId, const std::string &body);

private:
    Database &m_database;
};

} // namespace glint::server
