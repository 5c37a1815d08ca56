#pragma once

#include <string>
#include <vector>

namespace glint::server {

struct ServerConfig;

// The "feature" and "unfeature" commands of the server: put catalogue lenses
// on the featured list, optionally for a time window, or take them off.
// Arguments: lens ids, and for "feature" --position N, --from T, --until T
// (seconds since the epoch). Returns a process exit code.
class ScheduleCommand
{
public:
    static int feature(const ServerConfig &config, const std::vector<std::string> &args);
    static int unfeature(const ServerConfig &config, const std::vector<std::string> &args);
};

} // namespace glint::server
