#pragma once

#include "serverconfig.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace glint::server {

class Catalogue;
class CrashStore;
class Database;
class HttpDaemon;
class HttpRouter;
class StaticFiles;
class EventStore;
class LensIndex;
class LensSigner;
class LensUrls;
class RateLimiter;
class TwitchTokenClient;
struct ApiContext;

// The lens backend: opens the data folder, imports the bundled lenses into
// an empty catalogue, and serves the API under /vc/v1 plus the archives and
// images it refers to, through HttpDaemon. Decides who a client is and
// holds each client to its rate.
class LensServer
{
public:
    explicit LensServer(ServerConfig config);
    ~LensServer();
    LensServer(const LensServer &) = delete;
    LensServer &operator=(const LensServer &) = delete;

    // Binds the port and prepares everything; then serves in the background.
    bool start(std::string *error);
    void stop();

    int port() const { return m_port; }
    std::string publicUrl() const;
    // Rebuilds the in-memory catalogue from the database. Happens by itself
    // within a few seconds of an import made by another process.
    void reload();

private:
    bool openData(std::string *error);
    void importBundledIfEmpty();
    void installRoutes();
    bool admit(const httplib::Request &req, httplib::Response &res);
    std::string clientAddress(const httplib::Request &req) const;
    std::string clientKey(const httplib::Request &req, const std::string &address) const;
    void watchDatabase();

    ServerConfig m_config;
    int m_port = 0;
    std::unique_ptr<HttpRouter> m_router;
    std::unique_ptr<HttpDaemon> m_http;
    std::unique_ptr<StaticFiles> m_files;
    std::unique_ptr<CrashStore> m_crashes;
    std::unique_ptr<Database> m_database;
    std::unique_ptr<Catalogue> m_catalogue;
    std::unique_ptr<EventStore> m_events;
    std::unique_ptr<LensSigner> m_signer;
    std::unique_ptr<LensUrls> m_urls;
    std::unique_ptr<LensIndex> m_index;
    std::unique_ptr<RateLimiter> m_limiter;
    std::unique_ptr<RateLimiter> m_fileLimiter;
    std::unique_ptr<RateLimiter> m_crashLimiter;
    std::unique_ptr<TwitchTokenClient> m_twitch;
    std::unique_ptr<ApiContext> m_context;
    std::thread m_watcher;
    std::mutex m_stopMutex;
    std::condition_variable m_stopped;
    bool m_stopping = false;
};

} // namespace glint::server
