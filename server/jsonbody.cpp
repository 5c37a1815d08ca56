#include "jsonbody.h"

#include "apierror.h"

#include <httplib.h>

namespace glint::server {

bool JsonBody::parse(const httplib::Request &req, httplib::Response &res, size_t maxBytes,
                     nlohmann::json &out)
{
    if (req.body.size() > maxBytes) {
        ApiError::send(res, 413, "body_too_large",
                       "the request body is larger than " + std::to_string(maxBytes) + " bytes");
        return false;
    }
    const std::string type = req.get_header_value("Content-Type");
    if (type.rfind("application/json", 0) != 0) {
        ApiError::send(res, 415, "unsupported_media_type", "the request body must be application/json");
        return false;
    }
    out = nlohmann::json::parse(req.body, nullptr, false);
    if (out.is_discarded()) {
        ApiError::send(res, 400, "bad_json", "the request body is not valid JSON");
        return false;
    }
    if (!out.is_object()) {
        ApiError::send(res, 400, "bad_json", "the request body must be a JSON object");
        return false;
    }
    return true;
}

bool JsonBody::string(const nlohmann::json &object, const char *key, httplib::Response &res, std::string &out,
                      size_t maxLength)
{
    const auto it = object.find(key);
    if (it == object.end() || !it->is_string()) {
        ApiError::send(res, 400, "bad_field", std::string("\"") + key + "\" must be a string");
        return false;
    }
    out = it->get<std::string>();
    if (out.size() > maxLength) {
        ApiError::send(res, 400, "bad_field", std::string("\"") + key + "\" is too long");
        return false;
    }
    return true;
}

bool JsonBody::object(const nlohmann::json &object, const char *key, httplib::Response &res,
                      const nlohmann::json *&out)
{
    const auto it = object.find(key);
    if (it == object.end() || !it->is_object()) {
        ApiError::send(res, 400, "bad_field", std::string("\"") + key + "\" must be an object");
        return false;
    }
    out = &*it;
    return true;
}

} // namespace glint::server
