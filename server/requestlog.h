#pragma once

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace glint::server {

// One line per answered request on standard output:
// <UTC time> <client> "<method> <path>" <status> <bytes>
class RequestLog
{
public:
    static void write(const httplib::Request &req, const httplib::Response &res);
};

} // namespace glint::server
