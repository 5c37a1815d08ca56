#pragma once

#include "filebody.h"

#include <cstddef>
#include <functional>
#include <httplib.h>
#include <regex>
#include <string>
#include <vector>

namespace glint::server {

// The routes of the server: method, a pattern the whole path must match and
// the largest body the route takes (0: none). The request and response
// types are plain data; the connection handling is HttpDaemon's.
class HttpRouter
{
public:
    using Handler = std::function<void(const httplib::Request &, httplib::Response &)>;
    // A handler that may answer with (part of) an open file instead of a body.
    using FileHandler = std::function<void(const httplib::Request &, httplib::Response &, FileBody &)>;

    struct Route
    {
        std::string method;
        std::regex pattern;
        size_t maxBody = 0;
        Handler handler;
        FileHandler fileHandler;
        bool blocking = false; // may wait on the network or a large write
    };

    void get(const std::string &pattern, Handler handler);
    void post(const std::string &pattern, size_t maxBody, Handler handler, bool blocking = false);
    void files(const std::string &pattern, FileHandler handler);

    // The route for a request, with req.matches filled in; null when no route
    // has the path (*pathKnown false) or none takes the method.
    const Route *find(httplib::Request &req, bool *pathKnown) const;

private:
    std::vector<Route> m_routes;
};

} // namespace glint::server
