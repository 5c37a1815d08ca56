#pragma once

#include <string>

namespace glint::server {

// Every address the server hands out, built from the configured public base
// URL so that a server behind a proxy or on a random test port gives links
// that work for its clients.
class LensUrls
{
public:
    LensUrls(std::string publicBase, std::string pathPrefix, std::string deeplinkBase);

    const std::string &apiBase() const { return m_apiBase; }
    std::string archive(const std::string &id) const;
    std::string media(const std::string &id, const std::string &file) const;
    std::string icon(const std::string &id) const { return media(id, "icon.png"); }
    std::string preview(const std::string &id, int frame) const;
    // The frame address with "%1" in place of the frame index (from 0).
    std::string previewPattern(const std::string &id) const { return media(id, "preview/%1.png"); }
    std::string glintcode(const std::string &id) const { return media(id, "glintcode.png"); }
    std::string deeplink(const std::string &id) const { return m_deeplinkBase + id; }

private:
    std::string m_apiBase;
    std::string m_deeplinkBase;
};

} // namespace glint::server
