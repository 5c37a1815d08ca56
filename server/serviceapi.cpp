#include "serviceapi.h"

#include "apicontext.h"
#include "apierror.h"
#include "httprouter.h"
#include "jsonbody.h"

#include <openssl/evp.h>

using nlohmann::json;

namespace glint::server {

namespace {

const char *kJson = "application/json";
const char *kInstallationHeader = "X-Installation-Id";

std::string sha256Hex(const std::string &text)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr);
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        out.push_back(digits[digest[i] >> 4]);
        out.push_back(digits[digest[i] & 0x0f]);
    }
    return out;
}

void ok(httplib::Response &res, const char *idKey, int64_t id)
{
    res.set_content(json{{"status", "ok"}, {idKey, id}}.dump(), kJson);
}

void report(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    std::string lensId, reason, context;
    if (!JsonBody::parse(req, res, ctx.config.maxBodyBytes, body) ||
        !JsonBody::string(body, "lens_id", res, lensId, 128) ||
        !JsonBody::string(body, "reason_id", res, reason, 256) ||
        !JsonBody::string(body, "context", res, context))
        return;
    if (reason.empty())
        return ApiError::send(res, 400, "bad_field", "\"reason_id\" must not be empty");
    if (!ctx.index.contains(lensId))
        return ApiError::send(res, 404, "unknown_lens", "no lens with id \"" + lensId + "\"");
    ok(res, "report_id",
       ctx.events.addReport(lensId, reason, context, req.get_header_value(kInstallationHeader)));
}

// The payload member each action must carry.
const char *payloadKeyOf(const std::string &action)
{
    if (action == "lens_update")
        return "lens";
    if (action == "subscription")
        return "subscribe";
    return nullptr;
}

void streamEvent(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    StreamEventRecord event;
    std::string token;
    const json *payload = nullptr;
    if (!JsonBody::parse(req, res, ctx.config.maxBodyBytes, body) ||
        !JsonBody::string(body, "token", res, token) ||
        !JsonBody::string(body, "action", res, event.action, 64) ||
        !JsonBody::object(body, "payload", res, payload))
        return;
    if (token.empty())
        return ApiError::send(res, 401, "missing_token", "\"token\" must hold the Twitch access token");
    const char *payloadKey = payloadKeyOf(event.action);
    if (!payloadKey)
        return ApiError::send(res, 400, "bad_field",
                              "\"action\" must be \"lens_update\" or \"subscription\"");
    const auto ts = body.find("client_ts");
    if (ts == body.end() || !ts->is_number_integer() || ts->get<int64_t>() < 0)
        return ApiError::send(res, 400, "bad_field", "\"client_ts\" must be seconds since the epoch");
    const auto enabled = body.find("is_subscribe_enabled");
    if (enabled == body.end() || !enabled->is_boolean())
        return ApiError::send(res, 400, "bad_field", "\"is_subscribe_enabled\" must be a boolean");
    const json *inner = nullptr;
    if (!JsonBody::object(*payload, payloadKey, res, inner))
        return;
    event.clientTs = ts->get<int64_t>();
    event.isSubscribeEnabled = enabled->get<bool>();
    event.payloadJson = payload->dump();
    event.tokenSha256 = sha256Hex(token);
    event.installationId = req.get_header_value(kInstallationHeader);
    ok(res, "event_id", ctx.events.addStreamEvent(event));
}

// Shared part of the two Twitch calls: the "twitch" object and its client id.
bool twitchRequest(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res, json &body,
                   const json *&twitch, std::string &clientId)
{
    if (!JsonBody::parse(req, res, ctx.config.maxBodyBytes, body) ||
        !JsonBody::object(body, "twitch", res, twitch) ||
        !JsonBody::string(*twitch, "client_id", res, clientId, 256))
        return false;
    if (!ctx.twitch.isConfigured()) {
        ApiError::send(res, 503, "twitch_not_configured",
                       "Twitch sign-in is not available: this server has no Twitch client secret");
        return false;
    }
    if (!ctx.twitch.clientId().empty() && clientId != ctx.twitch.clientId()) {
        ApiError::send(res, 400, "bad_field", "\"client_id\" is not this server's Twitch application");
        return false;
    }
    return true;
}

void authorize(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    const json *twitch = nullptr;
    std::string clientId, code, redirectUri;
    if (!twitchRequest(ctx, req, res, body, twitch, clientId) ||
        !JsonBody::string(*twitch, "code", res, code) ||
        !JsonBody::string(*twitch, "redirect_uri", res, redirectUri))
        return;
    const auto answer = ctx.twitch.exchangeCode(clientId, code, redirectUri);
    res.status = answer.status;
    res.set_content(answer.body.dump(), kJson);
}

void refresh(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    json body;
    const json *twitch = nullptr;
    std::string clientId, refreshToken;
    if (!twitchRequest(ctx, req, res, body, twitch, clientId) ||
        !JsonBody::string(*twitch, "refresh_token", res, refreshToken))
        return;
    const auto answer = ctx.twitch.refresh(clientId, refreshToken);
    res.status = answer.status;
    res.set_content(answer.body.dump(), kJson);
}

bool platformOf(const httplib::Request &req, httplib::Response &res, std::string &platform)
{
    platform = req.get_param_value("platform");
    if (platform.empty() || platform.size() > 32 ||
        platform.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") != std::string::npos) {
        ApiError::send(res, 400, "bad_query", "platform must be a lower-case word such as \"windows\"");
        return false;
    }
    return true;
}

void latestVersion(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    std::string platform;
    if (!platformOf(req, res, platform))
        return;
    const json answer = {
        {"platform", platform}, {"version", ctx.config.updateVersion}, {"notes", ctx.config.updateNotes}};
    res.set_content(answer.dump(), kJson);
}

void downloadAddress(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    std::string platform;
    if (!platformOf(req, res, platform))
        return;
    if (ctx.config.updateUrl.empty())
        return ApiError::send(res, 404, "no_update", "no update download is configured");
    res.set_content(json{{"platform", platform}, {"url", ctx.config.updateUrl}}.dump(), kJson);
}

// The page the application falls back to when it has no download address:
// the configured download, or a short note.
void downloadPage(const ApiContext &ctx, const httplib::Request &, httplib::Response &res)
{
    if (!ctx.config.updateUrl.empty())
        return res.set_redirect(ctx.config.updateUrl);
    res.set_content("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Glint Camera</title></head>"
                    "<body><p>This lens server offers no application download.</p></body></html>",
                    "text/html; charset=utf-8");
}

void analytics(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    if (req.get_header_value("Content-Type").rfind("application/octet-stream", 0) != 0)
        return ApiError::send(res, 415, "unsupported_media_type",
                              "analytics batches are application/octet-stream");
    if (req.body.empty())
        return ApiError::send(res, 400, "empty_batch", "the analytics batch is empty");
    if (req.body.size() > ctx.config.maxAnalyticsBytes)
        return ApiError::send(res, 413, "body_too_large", "the analytics batch is too large");
    const int64_t id = ctx.events.addAnalyticsBatch(req.get_header_value(kInstallationHeader), req.body);
    res.set_content(json{{"status", "ok"}, {"batch_id", id}, {"size", req.body.size()}}.dump(), kJson);
}

} // namespace

void ServiceApi::install(HttpRouter &router, const ApiContext &context)
{
    const std::string base = "/vc/v1";
    const ApiContext *ctx = &context;
    router.post(base + "/reporting/lens", ctx->config.maxBodyBytes,
                [ctx](const auto &req, auto &res) { report(*ctx, req, res); });
    router.post(base + "/stream/event", ctx->config.maxBodyBytes,
                [ctx](const auto &req, auto &res) { streamEvent(*ctx, req, res); });
    router.post(
        base + "/stream/authorize", ctx->config.maxBodyBytes,
        [ctx](const auto &req, auto &res) { authorize(*ctx, req, res); }, true);
    router.post(
        base + "/stream/authorize/refresh", ctx->config.maxBodyBytes,
        [ctx](const auto &req, auto &res) { refresh(*ctx, req, res); }, true);
    router.get(base + "/update/latest", [ctx](const auto &req, auto &res) { latestVersion(*ctx, req, res); });
    router.get(base + "/update/download",
               [ctx](const auto &req, auto &res) { downloadAddress(*ctx, req, res); });
    router.get("/download", [ctx](const auto &req, auto &res) { downloadPage(*ctx, req, res); });
    router.post(
        base + "/analytics", ctx->config.maxAnalyticsBytes,
        [ctx](const auto &req, auto &res) { analytics(*ctx, req, res); }, true);
}

} // namespace glint::server
