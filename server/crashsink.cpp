#include "crashsink.h"

#include "apicontext.h"
#include "apierror.h"
#include "crashstore.h"
#include "httprouter.h"
#include "multipartform.h"

using nlohmann::json;

namespace glint::server {

namespace {

void receive(CrashStore &store, const httplib::Request &req, httplib::Response &res)
{
    std::vector<FormPart> parts;
    std::string error;
    if (!MultipartForm::parse(req.get_header_value("Content-Type"), req.body, parts, &error))
        return ApiError::send(res, 400, "not_multipart", error);
    uint64_t size = 0;
    for (const auto &part : parts)
        size += part.content.size();
    if (size > store.quota())
        return ApiError::send(res, 413, "body_too_large",
                              "the crash report is larger than this server keeps");
    const int64_t id = store.store(req.path, parts, &error);
    if (id < 0)
        return ApiError::send(res, 507, "not_stored", error);
    res.status = 201;
    res.set_content(json{{"status", "ok"}, {"crash_id", id}}.dump(), "application/json");
}

} // namespace

void CrashSink::install(HttpRouter &router, const ApiContext &context, CrashStore &store)
{
    CrashStore *crashes = &store;
    router.post(
        "/crash[A-Za-z0-9_./-]*", context.config.maxCrashBytes,
        [crashes](const auto &req, auto &res) { receive(*crashes, req, res); }, true);
}

} // namespace glint::server
