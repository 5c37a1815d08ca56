#pragma once

#include <string>

namespace glint::server {

// Writes the regular files below a folder into a zip archive, paths relative
// to the folder with "/" separators, in sorted order so that packing the same
// folder twice gives the same bytes. Entries are deflated unless storing is
// smaller. No zip64: every file and the archive must stay below 4 GiB.
class ZipWriter
{
public:
    static bool writeDirectory(const std::string &directory, const std::string &zipPath, std::string *error);
};

} // namespace glint::server
