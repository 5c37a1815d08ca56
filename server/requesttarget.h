#pragma once

#include <httplib.h>
#include <string>

namespace glint::server {

// Splits a request target ("/path?query") into the decoded path and
// parameters, strictly: a '%' must start two hex digits, the decoded text
// must be UTF-8 without control characters, and no parameter may be longer
// than maxValue bytes. The path must start with '/' and hold no "..".
class RequestTarget
{
public:
    static bool parse(const std::string &target, std::string &path, httplib::Params &params,
                      std::string *error, size_t maxValue = 4096);
    static bool decode(const std::string &text, bool plusIsSpace, std::string &out);
    static bool isUtf8(const std::string &text);
};

} // namespace glint::server
