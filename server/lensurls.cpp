#include "lensurls.h"

namespace glint::server {

namespace {
std::string withoutTrailingSlash(std::string text)
{
    while (!text.empty() && text.back() == '/')
        text.pop_back();
    return text;
}
} // namespace

LensUrls::LensUrls(std::string publicBase, std::string pathPrefix, std::string deeplinkBase)
    : m_apiBase(withoutTrailingSlash(std::move(publicBase)) + pathPrefix),
      m_deeplinkBase(std::move(deeplinkBase))
{}

std::string LensUrls::archive(const std::string &id) const
{
    return m_apiBase + "/archives/" + id + ".zip";
}

std::string LensUrls::media(const std::string &id, const std::string &file) const
{
    return m_apiBase + "/media/" + id + "/" + file;
}

std::string LensUrls::preview(const std::string &id, int frame) const
{
    return media(id, "preview/" + std::to_string(frame) + ".png");
}

} // namespace glint::server
