#pragma once

#include <cstdint>
#include <string>

namespace glint::server {

// One line per answered request on standard output:
// <UTC time> <client> "<method> <path>" <status> <bytes>
class RequestLog
{
public:
    static void write(const std::string &client, const std::string &method, const std::string &path,
                      int status, uint64_t bytes);
};

} // namespace glint::server
