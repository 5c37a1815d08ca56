#include "lensserver.h"

#include "apicontext.h"
#include "apierror.h"
#include "catalogue.h"
#include "crashsink.h"
#include "database.h"
#include "deferredrejection.h"
#include "eventstore.h"
#include "explorerapi.h"
#include "lensimporter.h"
#include "lensindex.h"
#include "lensresigner.h"
#include "lenssigner.h"
#include "lensurls.h"
#include "ratelimiter.h"
#include "requestlog.h"
#include "serviceapi.h"
#include "twitchtokenclient.h"

#include <filesystem>
#include <httplib.h>
#include <iostream>
#include <sys/socket.h>

namespace fs = std::filesystem;

namespace glint::server {

namespace {

const std::string kPrefix = "/vc/v1";
const char *kInstallationHeader = "X-Installation-Id";

bool isFilePath(const std::string &path)
{
    return path.rfind(kPrefix + "/media/", 0) == 0 || path.rfind(kPrefix + "/archives/", 0) == 0;
}

bool isValidInstallationId(const std::string &id)
{
    if (id.empty() || id.size() > 128)
        return false;
    for (const char c : id) {
        if (c < 0x21 || c > 0x7e)
            return false;
    }
    return true;
}

} // namespace

// httplib listens with a backlog of 5, which makes a burst of new
// connections wait for SYN retries; listening again widens it.
struct HttpServerHolder
{
    struct Server : httplib::Server
    {
        void widenBacklog() { ::listen(svr_sock_, 512); }
    } server;
};

LensServer::LensServer(ServerConfig config) : m_config(std::move(config)), m_http(new HttpServerHolder) {}

LensServer::~LensServer()
{
    stop();
}

std::string LensServer::publicUrl() const
{
    if (!m_config.publicUrl.empty())
        return m_config.publicUrl;
    return "http://" + m_config.address + ":" + std::to_string(m_port);
}

bool LensServer::openData(std::string *error)
{
    std::error_code ec;
    fs::create_directories(fs::path(m_config.dataDir) / "archives", ec);
    fs::create_directories(fs::path(m_config.dataDir) / "media", ec);
    if (ec) {
        *error = "cannot create the data directory " + m_config.dataDir + ": " + ec.message();
        return false;
    }
    try {
        m_database = std::make_unique<Database>((fs::path(m_config.dataDir) / "lenses.db").string());
    } catch (const std::exception &e) {
        *error = "cannot open the database in " + m_config.dataDir + ": " + e.what();
        return false;
    }
    m_catalogue = std::make_unique<Catalogue>(*m_database);
    m_events = std::make_unique<EventStore>(*m_database);
    m_signer = std::make_unique<LensSigner>(m_config.keyPath);
    if (!m_signer->isValid())
        std::cerr << "Lens signing key unusable, lenses cannot be imported. Reason: " << m_signer->error()
                  << "\n";
    return true;
}

void LensServer::importBundledIfEmpty()
{
    if (!m_config.importBundled || m_catalogue->count() > 0 || !fs::is_directory(m_config.bundledLenses))
        return;
    LensImporter importer(m_config.dataDir, *m_signer, *m_catalogue, m_config.deeplinkBase);
    std::vector<std::string> errors;
    const auto ids = importer.importAll(m_config.bundledLenses, &errors);
    for (const auto &problem : errors)
        std::cerr << "Bundled lens not imported. Reason: " << problem << "\n";
    for (size_t i = 0; i < ids.size(); ++i)
        m_catalogue->schedule(ids[i], int(i), 0, 0);
    std::cout << "Imported " << ids.size() << " bundled lenses from " << m_config.bundledLenses << std::endl;
}

void LensServer::reload()
{
    m_index->rebuild(m_catalogue->all());
}

void LensServer::configureConnections()
{
    auto &server = m_http->server;
    const size_t threads = size_t(m_config.threads);
    server.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    server.set_payload_max_length(
        std::max({m_config.maxBodyBytes, m_config.maxAnalyticsBytes, m_config.maxCrashBytes}));
    server.set_keep_alive_max_count(10000);
    server.set_keep_alive_timeout(10);
    server.set_tcp_nodelay(true);
}

void LensServer::installHandlers()
{
    auto &server = m_http->server;

    server.set_pre_routing_handler([this](const httplib::Request &req, httplib::Response &res) {
        if (req.path.rfind(kPrefix + "/", 0) != 0 || isFilePath(req.path))
            return httplib::Server::HandlerResponse::Unhandled;
        const std::string installation = req.get_header_value(kInstallationHeader);
        const bool identified = isValidInstallationId(installation);
        // Analytics batches may come from an uploader without the header.
        if (!identified && req.path != kPrefix + "/analytics") {
            ApiError::send(res, 400, "missing_installation_id",
                           "the X-Installation-Id header must hold this installation's id");
            return httplib::Server::HandlerResponse::Handled;
        }
        DeferredRejection::clear();
        if (!m_limiter->allow(identified ? installation : "address " + req.remote_addr)) {
            if (DeferredRejection::hasBody(req)) {
                DeferredRejection::mark(); // answered once the body is read
                return httplib::Server::HandlerResponse::Unhandled;
            }
            ApiError::send(res, 429, "too_many_requests", "Too many requests, please try again later");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    httplib::Server::HandlerWithResponse onError = [](const httplib::Request &, httplib::Response &res) {
        return ApiError::fillDefault(res) ? httplib::Server::HandlerResponse::Handled
                                          : httplib::Server::HandlerResponse::Unhandled;
    };
    server.set_error_handler(onError);
    server.set_exception_handler(
        [](const httplib::Request &req, httplib::Response &res, std::exception_ptr ep) {
            std::string what = "unknown error";
            try {
                std::rethrow_exception(ep);
            } catch (const std::exception &e) {
                what = e.what();
            } catch (...) {
            }
            std::cerr << "Request failed: " << req.method << " " << req.path << ". Reason: " << what << "\n";
            ApiError::send(res, 500, "server_error", "the server could not answer this request");
        });
    server.set_logger(
        [](const httplib::Request &req, const httplib::Response &res) { RequestLog::write(req, res); });

    server.set_mount_point(kPrefix + "/media", (fs::path(m_config.dataDir) / "media").string());
    server.set_mount_point(kPrefix + "/archives", (fs::path(m_config.dataDir) / "archives").string());
    ExplorerApi::install(server, *m_context);
    ServiceApi::install(server, *m_context);
    CrashSink::install(server, *m_context);
}

bool LensServer::start(std::string *error)
{
    std::string ignored;
    if (!error)
        error = &ignored;
    auto &server = m_http->server;
    configureConnections();
    m_port = m_config.port == 0 ? server.bind_to_any_port(m_config.address)
                                : (server.bind_to_port(m_config.address, m_config.port) ? m_config.port : -1);
    if (m_port <= 0) {
        *error = "cannot listen on " + m_config.address + ":" + std::to_string(m_config.port);
        return false;
    }
    server.widenBacklog();
    if (!openData(error))
        return false;
    const int resigned = LensResigner::ensureSignedWith(*m_catalogue, *m_signer);
    if (resigned > 0)
        std::cout << "Signed " << resigned << " lenses again with the current key" << std::endl;
    importBundledIfEmpty();
    m_urls = std::make_unique<LensUrls>(publicUrl(), kPrefix, m_config.deeplinkBase);
    m_index = std::make_unique<LensIndex>(*m_urls);
    reload();
    m_limiter = std::make_unique<RateLimiter>(m_config.rateLimit, m_config.rateBurst);
    m_twitch = std::make_unique<TwitchTokenClient>(m_config.twitchTokenUrl, m_config.twitchClientId,
                                                   m_config.twitchClientSecret);
    m_context.reset(new ApiContext{m_config, *m_catalogue, *m_events, *m_index, *m_urls, *m_twitch});
    installHandlers();
    m_thread = std::thread([&server] { server.listen_after_bind(); });
    m_watcher = std::thread([this] { watchDatabase(); });
    return true;
}

void LensServer::watchDatabase()
{
    int64_t seen = m_database->dataVersion();
    std::unique_lock lock(m_stopMutex);
    while (!m_stopped.wait_for(lock, std::chrono::seconds(2), [this] { return m_stopping; })) {
        try {
            const int64_t now = m_database->dataVersion();
            if (now == seen)
                continue;
            seen = now;
            reload();
            std::cout << "Catalogue reloaded after an outside change (" << m_index->size() << " lenses)"
                      << std::endl;
        } catch (const std::exception &e) {
            std::cerr << "Catalogue couldn't be reloaded. Reason: " << e.what() << std::endl;
        }
    }
}

void LensServer::stop()
{
    {
        std::lock_guard lock(m_stopMutex);
        m_stopping = true;
    }
    m_stopped.notify_all();
    if (m_watcher.joinable())
        m_watcher.join();
    if (m_thread.joinable()) {
        m_http->server.stop();
        m_thread.join();
    }
}

} // namespace glint::server
