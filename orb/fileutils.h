#pragma once

#include <string>

namespace Orb {

// File helpers shared by the library and its hosts.
class FileUtils
{
public:
    static bool fileExists(const std::string &path);
    static bool readFile(const std::string &path, std::string &out);
    // True when the file starts with the PNG signature.
    static bool isPng(const std::string &path);
};

} // namespace Orb
