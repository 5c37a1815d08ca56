#pragma once

#include <string>
#include <vector>

namespace glint::server {

struct ServerConfig;

// The "import" command of the server and the "register" command of the
// packer: packs, signs and registers lens folders in a data directory.
// Arguments are lens folders and "--featured". Returns a process exit code.
class ImportCommand
{
public:
    static int run(const ServerConfig &config, const std::vector<std::string> &args);
};

} // namespace glint::server
