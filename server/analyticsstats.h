#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace glint::server {

class Database;
struct ServerConfig;

// The "stats" command: what the stored analytics batches say, for the
// operator of a server. Decodes every batch with the event schema and
// counts events per type and per day (UTC, by the event's own time).
class AnalyticsStats
{
public:
    // Prints the counts as JSON on standard output; returns an exit code.
    static int run(const ServerConfig &config, const std::vector<std::string> &args);
    // {"batches", "undecodable_batches", "events", "installations",
    //  "by_type": {type: n}, "by_day": {"YYYY-MM-DD": {"total": n, type: n}}}
    static nlohmann::json compute(Database &database);
    // The name under which an event of a stored batch is counted.
    static std::string typeName(const std::string &serialisedEvent);
};

} // namespace glint::server
