#include "crashsink.h"

#include "apicontext.h"
#include "apierror.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <httplib.h>

namespace fs = std::filesystem;
using nlohmann::json;

namespace glint::server {

namespace {

// A folder name no other upload uses, also across restarts.
std::string uniqueName()
{
    static std::atomic<unsigned> counter{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()) + "-" +
           std::to_string(counter++);
}

// Form names become file names: anything unusual turns into '_'.
std::string safeName(const std::string &name, size_t index)
{
    std::string out = std::to_string(index) + "-";
    for (const char c : name.substr(0, 64)) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                           c == '.' || c == '-' || c == '_';
        out.push_back(plain ? c : '_');
    }
    return out;
}

void receive(const ApiContext &ctx, const httplib::Request &req, httplib::Response &res)
{
    if (!req.is_multipart_form_data() || req.files.empty())
        return ApiError::send(res, 400, "not_multipart", "crash reports are multipart/form-data uploads");
    const fs::path dir = fs::path(ctx.config.dataDir) / "crashes" / uniqueName();
    std::error_code ec;
    fs::create_directories(dir, ec);
    json parts = json::array();
    int64_t total = 0;
    for (const auto &[name, part] : req.files) {
        const std::string file = safeName(name, parts.size());
        std::ofstream out(dir / file, std::ios::binary);
        out.write(part.content.data(), std::streamsize(part.content.size()));
        if (!out.flush())
            return ApiError::send(res, 500, "server_error", "the crash report could not be stored");
        parts.push_back({{"name", name},
                         {"filename", part.filename},
                         {"content_type", part.content_type},
                         {"size", part.content.size()},
                         {"file", file}});
        total += int64_t(part.content.size());
    }
    const int64_t id = ctx.events.addCrashReport(req.path, parts.dump(), total, dir.string());
    res.status = 201;
    res.set_content(json{{"status", "ok"}, {"crash_id", id}}.dump(), "application/json");
}

} // namespace

void CrashSink::install(httplib::Server &server, const ApiContext &context)
{
    const ApiContext *ctx = &context;
    server.Post("/crash.*", [ctx](const auto &req, auto &res) { receive(*ctx, req, res); });
}

} // namespace glint::server
