#pragma once

#include <string>
#include <vector>

namespace glint::server {

// The header of a lens folder's "lens.json": what the catalogue needs to
// list a lens. The effect description in the rest of the file is not read.
struct LensManifest
{
    int formatVersion = 0;
    std::string id;
    std::string name;
    std::string author;
    std::string icon;                       // relative path of a PNG
    std::vector<std::string> previewFrames; // relative paths of PNGs
    int frameIntervalMs = 0;
    std::string hint;
    std::vector<std::string> externalTriggers;

    // Reads and validates <folder>/lens.json, including that the icon and
    // preview frames are PNG files inside the folder. On failure returns
    // false and sets error to the first problem found.
    bool load(const std::string &folder, std::string *error);

    static bool isValidId(const std::string &id);
};

} // namespace glint::server
