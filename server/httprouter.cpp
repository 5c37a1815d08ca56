#include "httprouter.h"

namespace glint::server {

void HttpRouter::get(const std::string &pattern, Handler handler)
{
    m_routes.push_back({"GET", std::regex(pattern), 0, std::move(handler), {}});
}

void HttpRouter::files(const std::string &pattern, FileHandler handler)
{
    m_routes.push_back({"GET", std::regex(pattern), 0, {}, std::move(handler)});
}

void HttpRouter::post(const std::string &pattern, size_t maxBody, Handler handler, bool blocking)
{
    m_routes.push_back({"POST", std::regex(pattern), maxBody, std::move(handler), {}, blocking});
}

const HttpRouter::Route *HttpRouter::find(httplib::Request &req, bool *pathKnown) const
{
    *pathKnown = false;
    // HEAD is answered as GET without the body.
    const std::string method = req.method == "HEAD" ? "GET" : req.method;
    for (const auto &route : m_routes) {
        std::smatch matches;
        if (!std::regex_match(req.path, matches, route.pattern))
            continue;
        *pathKnown = true;
        if (route.method == method) {
            req.matches = matches;
            return &route;
        }
    }
    return nullptr;
}

} // namespace glint::server
