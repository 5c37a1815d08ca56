#pragma once

#include "filebody.h"

#include <httplib.h>
#include <string>

namespace glint::server {

// Lens archives and images from the data folder: only names the importer
// makes (archives/<id>.zip, media/<id>/icon.png, glintcode.png,
// preview/<n>.png), only regular files, never through a symbolic link.
// Honours one byte range.
class StaticFiles
{
public:
    explicit StaticFiles(std::string dataDir) : m_dataDir(std::move(dataDir)) {}

    // For a path relative to the data folder ("archives/x.zip").
    void answer(const std::string &relative, const httplib::Request &req, httplib::Response &res,
                FileBody &body) const;
    static bool isServedName(const std::string &relative);

private:
    std::string m_dataDir;
};

} // namespace glint::server
