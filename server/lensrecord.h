#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace glint::server {

// One catalogue lens as stored in the database. Files live in the data
// folder: archives/<id>.zip and media/<id>/{icon.png,preview/<n>.png,glintcode.png}.
struct LensRecord
{
    std::string id;
    std::string name;
    std::string author;
    std::string hintId;
    std::string status = "Live";
    std::string checksum;
    std::string signature;
    int64_t archiveSize = 0;
    int previewCount = 0;
    int previewIntervalMs = 0;
    std::vector<std::string> externalTriggers;
    int64_t popularity = 0;
};

} // namespace glint::server
