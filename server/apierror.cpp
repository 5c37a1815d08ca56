#include "apierror.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace glint::server {

namespace {
const char *codeForStatus(int status)
{
    switch (status) {
    case 400:
        return "bad_request";
    case 404:
        return "not_found";
    case 405:
        return "method_not_allowed";
    case 413:
        return "body_too_large";
    case 415:
        return "unsupported_media_type";
    case 416:
        return "range_not_satisfiable";
    case 429:
        return "too_many_requests";
    case 431:
        return "headers_too_large";
    default:
        return status >= 500 ? "server_error" : "error";
    }
}
} // namespace

void ApiError::send(httplib::Response &res, int status, const std::string &code, const std::string &message)
{
    res.status = status;
    const nlohmann::json body = {{"error", code}, {"message", message}, {"status", status}};
    // Messages may quote client text: invalid UTF-8 in it is replaced.
    res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), "application/json");
}

bool ApiError::fillDefault(httplib::Response &res)
{
    if (res.status < 400 || !res.body.empty())
        return false;
    send(res, res.status, codeForStatus(res.status),
         "request failed with HTTP status " + std::to_string(res.status));
    return true;
}

} // namespace glint::server
