#pragma once

#include <string>
#include <vector>

namespace glint::server {

struct ServerConfig;

// "glint-lens-server crashes": the operator's view of the crash reports the
// server has received.
//   crashes [list]        one line per report, newest first
//   crashes json          the same as a JSON array
//   crashes show ID       a report's parts, with its description and user id
//   crashes part ID NAME  a part's stored bytes on standard output
// Reads the database read-only; never changes or removes anything.
class CrashCommand
{
public:
    static int run(const ServerConfig &config, const std::vector<std::string> &args);
};

} // namespace glint::server
