#include "explorerapi.h"

#include "apicontext.h"
#include "apierror.h"
#include "httprouter.h"
#include "jsonbody.h"

#include <ctime>

using nlohmann::json;

namespace glint::server {

namespace {

constexpr size_t kDefaultPage = 50;
constexpr size_t kMaxPage = 100;
constexpr size_t kMaxSearchResults = 100;
constexpr size_t kMaxLookupIds = 500;
const char *kJson = "application/json";

// A non-negative integer query parameter; absent gives the fallback.
bool queryNumber(const httplib::Request &req, const char *key, size_t fallback, size_t &out)
{
    if (!req.has_param(key)) {
        out = fallback;
        return true;
    }
    const std::string text = req.get_param_value(key);
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    out = std::stoul(text);
    return true;
}

void featured(const ApiContext &ctx, const httplib::Request &, httplib::Response &res)
{
    const auto ids = ctx.catalogue.featuredAt(static_cast<int64_t>(std::time(nullptr)));
    res.set_content(ctx.index.listJson(ids), kJson);
}

void top(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    size_t offset = 0;
    size_t limit = 0;
    if (!queryNumber(req, "offset", 0, offset) || !queryNumber(req, "limit", kDefaultPage, limit))
        return ApiError::send(res, 400, "bad_query", "offset and limit must be non-negative integers");
    if (limit == 0)
        return ApiError::send(res, 400, "bad_query", "limit must be at least 1");
    res.set_content(ctx.index.topJson(offset, std::min(limit, kMaxPage)), kJson);
}

void search(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    std::string query;
    if (!JsonBody::parse(req, res, ctx.config.maxBodyBytes, body) ||
        !JsonBody::string(body, "query", res, query, 256))
        return;
    res.set_content(ctx.index.searchJson(query, kMaxSearchResults), kJson);
}

void unlock(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    const std::string id = req.get_param_value("uid");
    if (id.empty() || id.size() > 128)
        return ApiError::send(res, 400, "bad_query", "uid must be a lens id of 1 to 128 characters");
    const auto lens = ctx.catalogue.find(id);
    if (!lens || !ctx.index.contains(id))
        return ApiError::send(res, 404, "unknown_lens", "no lens with id \"" + id + "\"");
    ctx.catalogue.addPopularity(id, 1);
    ctx.index.addPopularity(id, 1);
    const json answer = {{"lens_url", ctx.urls.archive(id)},
                         {"signature", lens->signature},
                         {"hint_id", lens->hintId},
                         {"lens", json::parse(ctx.index.lensJson(id))}};
    res.set_content(answer.dump(), kJson);
}

void lookup(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    if (!JsonBody::parse(req, res, ctx.config.maxBodyBytes, body))
        return;
    const auto it = body.find("lenses");
    if (it == body.end() || !it->is_array())
        return ApiError::send(res, 400, "bad_field", "\"lenses\" must be an array of lens ids");
    if (it->size() > kMaxLookupIds)
        return ApiError::send(res, 400, "bad_field", "at most 500 lens ids per request");
    std::vector<std::string> ids;
    for (const auto &id : *it) {
        if (!id.is_string())
            return ApiError::send(res, 400, "bad_field", "\"lenses\" must be an array of lens ids");
        ids.push_back(id.get<std::string>());
    }
    res.set_content(ctx.index.lookupJson(ids), kJson);
}

} // namespace

void ExplorerApi::install(HttpRouter &router, const ApiContext &context)
{
    const std::string base = "/vc/v1/explorer";
    const ApiContext *ctx = &context;
    router.get(base + "/scheduled", [ctx](const auto &req, auto &res) { featured(*ctx, req, res); });
    router.get(base + "/top", [ctx](const auto &req, auto &res) { top(*ctx, req, res); });
    router.post(base + "/search", ctx->config.maxBodyBytes,
                [ctx](const auto &req, auto &res) { search(*ctx, req, res); });
    router.get(base + "/unlock", [ctx](const auto &req, auto &res) { unlock(*ctx, req, res); });
    router.post(base + "/lenses", ctx->config.maxBodyBytes,
                [ctx](const auto &req, auto &res) { lookup(*ctx, req, res); });
}

} // namespace glint::server
