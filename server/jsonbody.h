#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace glint::server {

// Reads a request's JSON object body. On any problem (size, content type,
// syntax, not an object) answers the request with a JSON error and returns
// false.
class JsonBody
{
public:
    static bool parse(const httplib::Request &req, httplib::Response &res, size_t maxBytes,
                      nlohmann::json &out);

    // Typed member lookups that answer 400 naming the member on failure.
    static bool string(const nlohmann::json &object, const char *key, httplib::Response &res,
                       std::string &out, size_t maxLength = 4096);
    static bool object(const nlohmann::json &object, const char *key, httplib::Response &res,
                       const nlohmann::json *&out);
};

} // namespace glint::server
