#include "jsonbody.h"

#include "apierror.h"
#include "jsonmember.h"

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

namespace {

const nlohmann::json *required(const nlohmann::json &object, const char *key, json::Kind kind,
                               httplib::Response &res)
{
    const json::Member member = json::member(object, key, kind);
    if (!member.value)
        ApiError::send(res, 400, "bad_field", std::string("\"") + key + "\" must be " + json::kindName(kind));
    return member.value;
}

} // namespace

bool JsonBody::string(const nlohmann::json &object, const char *key, httplib::Response &res, std::string &out,
                      size_t maxLength)
{
    const nlohmann::json *value = required(object, key, json::Kind::String, res);
    if (!value)
        return false;
    out = value->get<std::string>();
    if (out.size() > maxLength) {
        ApiError::send(res, 400, "bad_field", std::string("\"") + key + "\" is too long");
        return false;
    }
    return true;
}

bool JsonBody::object(const nlohmann::json &object, const char *key, httplib::Response &res,
                      const nlohmann::json *&out)
{
    out = required(object, key, json::Kind::Object, res);
    return out != nullptr;
}

} // namespace glint::server
