#include "lensserver.h"

#include "apicontext.h"
#include "apierror.h"
#include "catalogue.h"
#include "crashsink.h"
#include "crashstore.h"
#include "database.h"
#include "eventstore.h"
#include "explorerapi.h"
#include "httpdaemon.h"
#include "httprouter.h"
#include "lensimporter.h"
#include "lensindex.h"
#include "lensresigner.h"
#include "lenssigner.h"
#include "lensurls.h"
#include "ratelimiter.h"
#include "requestlog.h"
#include "serviceapi.h"
#include "staticfiles.h"
#include "twitchtokenclient.h"

#include <arpa/inet.h>
#include <filesystem>
#include <iostream>
#include <sys/resource.h>

namespace fs = std::filesystem;

namespace glint::server {

namespace {

const std::string kPrefix = "/vc/v1";
const char *kInstallationHeader = "X-Installation-Id";

bool isFilePath(const std::string &path)
{
    return path.rfind(kPrefix + "/media/", 0) == 0 || path.rfind(kPrefix + "/archives/", 0) == 0;
}

bool isLoopback(const std::string &address)
{
    return address.rfind("127.", 0) == 0 || address == "::1" || address.rfind("::ffff:127.", 0) == 0;
}

bool isAddress(const std::string &text)
{
    unsigned char buffer[sizeof(in6_addr)];
    return inet_pton(AF_INET, text.c_str(), buffer) == 1 || inet_pton(AF_INET6, text.c_str(), buffer) == 1;
}

// Each connection needs a descriptor, each file answer another one.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
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

LensServer::LensServer(ServerConfig config) : m_config(std::move(config)) {}

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

std::string LensServer::clientAddress(const httplib::Request &req) const
{
    if (!m_config.trustedProxy.empty() && req.remote_addr == m_config.trustedProxy) {
        const std::string forwarded = req.get_header_value("X-Real-IP");
        if (isAddress(forwarded))
            return forwarded;
    }
    return req.remote_addr;
}

// Who one rate counts: the address, unless several installations share it
// on purpose (a loopback peer is this machine's application).
std::string LensServer::clientKey(const httplib::Request &req, const std::string &address) const
{
    const bool byInstallation =
        m_config.rateBy == "installation" || (m_config.rateBy == "auto" && isLoopback(address));
    if (!byInstallation)
        return address;
    const std::string installation = req.get_header_value(kInstallationHeader);
    return address + " " + (isValidInstallationId(installation) ? installation : std::string());
}

// Runs before routing and before any body is read.
bool LensServer::admit(const httplib::Request &req, httplib::Response &res)
{
    const std::string address = clientAddress(req);
    auto refuse = [&res] {
        res.set_header("Retry-After", "1");
        ApiError::send(res, 429, "too_many_requests", "Too many requests, please try again later");
        return false;
    };
    if (req.path.rfind("/crash", 0) == 0)
        return req.method != "POST" || m_crashLimiter->allow(address) || refuse();
    if (req.path.rfind(kPrefix + "/", 0) != 0 || isFilePath(req.path))
        return m_fileLimiter->allow(clientKey(req, address)) || refuse();
    const std::string installation = req.get_header_value(kInstallationHeader);
    // Analytics batches may come from an uploader without the header.
    if (!isValidInstallationId(installation) && req.path != kPrefix + "/analytics") {
        ApiError::send(res, 400, "missing_installation_id",
                       "the X-Installation-Id header must hold this installation's id");
        return false;
    }
    return m_limiter->allow(clientKey(req, address)) || refuse();
}

void LensServer::installRoutes()
{
    m_files = std::make_unique<StaticFiles>(m_config.dataDir);
    const StaticFiles *files = m_files.get();
    const std::string filePrefix = kPrefix + "/";
    m_router->files(kPrefix + "/(archives|media)/.*",
                    [files, filePrefix](const httplib::Request &req, httplib::Response &res, FileBody &body) {
                        files->answer(req.path.substr(filePrefix.size()), req, res, body);
                    });
    ExplorerApi::install(*m_router, *m_context);
    ServiceApi::install(*m_router, *m_context);
    CrashSink::install(*m_router, *m_context, *m_crashes);
}

bool LensServer::start(std::string *error)
{
    std::string ignored;
    if (!error)
        error = &ignored;
    // The port comes first: the addresses handed out name it.
    m_router = std::make_unique<HttpRouter>();
    m_http = std::make_unique<HttpDaemon>(m_config.limits, *m_router,
                                          [this](const auto &req, auto &res) { return admit(req, res); });
    m_port = m_http->listen(m_config.address, m_config.port, error);
    if (m_port <= 0)
        return false;
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
    m_fileLimiter = std::make_unique<RateLimiter>(m_config.fileRateLimit, m_config.fileRateBurst);
    m_crashLimiter = std::make_unique<RateLimiter>(m_config.crashesPerHour / 3600.0,
                                                   std::max(1, int(m_config.crashesPerHour)));
    m_crashes = std::make_unique<CrashStore>(*m_database, (fs::path(m_config.dataDir) / "crashes").string(),
                                             m_config.crashQuotaBytes);
    m_twitch = std::make_unique<TwitchTokenClient>(m_config.twitchTokenUrl, m_config.twitchClientId,
                                                   m_config.twitchClientSecret);
    m_context.reset(new ApiContext{m_config, *m_catalogue, *m_events, *m_index, *m_urls, *m_twitch});
    installRoutes();
    raiseDescriptorLimit();
    if (!m_http->start(error))
        return false;
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
    if (m_http)
        m_http->stop();
}

} // namespace glint::server
