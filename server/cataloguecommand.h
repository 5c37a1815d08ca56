#pragma once

#include <string>
#include <vector>

namespace glint::server {

struct ServerConfig;

// The catalogue editing commands of the server. "feature" and "unfeature"
// put catalogue lenses on the featured list, optionally for a time window,
// or take them off.
// Arguments: lens ids, and for "feature" --position N, --from T, --until T
// (seconds since the epoch). Returns a process exit code.
class CatalogueCommand
{
public:
    static int feature(const ServerConfig &config, const std::vector<std::string> &args);
    static int unfeature(const ServerConfig &config, const std::vector<std::string> &args);
    // The "remove" command: takes lenses out of the catalogue and deletes
    // their archives and images.
    static int remove(const ServerConfig &config, const std::vector<std::string> &args);
};

} // namespace glint::server
