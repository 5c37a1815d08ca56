#include "fileutils.h"

#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace Orb {

bool FileUtils::fileExists(const std::string &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool FileUtils::readFile(const std::string &path, std::string &out)
{
    if (!fileExists(path))
        return false;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    out = buffer.str();
    return true;
}

bool FileUtils::isPng(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    char magic[8] = {};
    return in.read(magic, sizeof magic) && std::string(magic, sizeof magic) == "\x89PNG\r\n\x1a\n";
}

} // namespace Orb
