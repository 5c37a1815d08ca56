#pragma once

#include <string>

namespace httplib {
struct Response;
}

namespace glint::server {

// JSON error answers: {"error": code, "message": text, "status": status}.
class ApiError
{
public:
    static void send(httplib::Response &res, int status, const std::string &code, const std::string &message);
    // Fills in a JSON body for an error status that has none yet.
    static bool fillDefault(httplib::Response &res);
};

} // namespace glint::server
