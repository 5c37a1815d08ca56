// Requests per second and latency percentiles of "/explorer/top" and
// "/explorer/search" with a catalogue of 10,000 lenses, 16 concurrent
// keep-alive clients, everything on loopback.
//
// Then the same while 500 idle keep-alive connections are held open, and
// the resident memory of the server program (from /proc) under an endless
// header attack and a parallel large body attack.
//
// Usage: bench_server [seconds per endpoint, default 5] [clients, default 16]
//                     [idle connections, default 500]
//        bench_server --serve SECONDS
// The second form only fills the catalogue and serves it for that long on
// the printed port, for an external load generator such as wrk.
#include "catalogue.h"
#include "database.h"
#include "lensindex.h"
#include "lensrecord.h"
#include "lensserver.h"
#include "lenssigner.h"
#include "rawclient.h"
#include "serverprocess.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <httplib.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace glint::server;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kLenses = 10000;

const std::vector<std::string> kWords = {"Sun",   "Moon",  "Neon",  "Cat",    "Dog",   "Glitter", "Retro",
                                         "Space", "Party", "Cloud", "Rain",   "Fire",  "Ice",     "Crown",
                                         "Mask",  "Star",  "Pixel", "Dream",  "Wave",  "Shades",  "Heart",
                                         "Ghost", "Robot", "Candy", "Forest", "Ocean", "Comic",   "Vintage"};

const std::vector<std::string> kQueries = {"sun", "neon cat", "studio 12", "ghost", "ret", "zzz", "e"};

void fillCatalogue(const std::string &dataDir)
{
    fs::create_directories(dataDir);
    Database database(dataDir + "/lenses.db");
    Catalogue catalogue(database);
    std::mt19937 random(42);
    database.db().exec("BEGIN");
    for (int i = 0; i < kLenses; ++i) {
        LensRecord lens;
        lens.id = "lens-" + std::to_string(i);
        lens.name = kWords[random() % kWords.size()] + " " + kWords[random() % kWords.size()] + " " +
                    std::to_string(i);
        lens.author = kWords[random() % kWords.size()] + " Studio " + std::to_string(i % 300);
        lens.checksum = std::string(64, 'A');
        lens.signature = std::string(140, 'S');
        lens.previewCount = 8;
        lens.previewIntervalMs = 100;
        lens.popularity = int64_t(random() % 100000);
        catalogue.upsert(lens);
    }
    database.db().exec("COMMIT");
    // The made-up signatures count as made by the server's key, so that
    // starting does not sign every lens again.
    catalogue.setStateValue("signing_public_key", LensSigner(ServerConfig().keyPath).publicKeyBase64());
}

struct Result
{
    long requests = 0;
    long failures = 0;
    double seconds = 0;
    std::vector<double> latenciesMs;
};

using MakeRequest = std::function<httplib::Result(httplib::Client &, std::mt19937 &)>;

Result load(int port, int clients, double seconds, const MakeRequest &request)
{
    std::vector<std::vector<double>> latencies(static_cast<size_t>(clients));
    std::atomic<long> failures{0};
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    const auto end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            httplib::Client client("127.0.0.1", port);
            client.set_keep_alive(true);
            client.set_tcp_nodelay(true);
            client.set_default_headers({{"X-Installation-Id", "bench-" + std::to_string(c)}});
            std::mt19937 random(static_cast<unsigned>(c));
            while (Clock::now() < end) {
                const auto t0 = Clock::now();
                const auto res = request(client, random);
                const auto t1 = Clock::now();
                if (!res || res->status != 200 || res->body.size() < 12)
                    ++failures;
                latencies[size_t(c)].push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    Result result;
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    for (auto &list : latencies)
        result.latenciesMs.insert(result.latenciesMs.end(), list.begin(), list.end());
    result.requests = long(result.latenciesMs.size());
    result.failures = failures;
    std::sort(result.latenciesMs.begin(), result.latenciesMs.end());
    return result;
}

double percentile(const std::vector<double> &sorted, double p)
{
    if (sorted.empty())
        return 0;
    return sorted[std::min(sorted.size() - 1, size_t(p / 100.0 * double(sorted.size())))];
}

void report(const char *name, const Result &r)
{
    std::printf(
        "%-24s %8.0f req/s  p50 %6.2f ms  p90 %6.2f ms  p99 %6.2f ms  max %7.2f ms  (%ld requests, %ld "
        "failed)\n",
        name, double(r.requests) / r.seconds, percentile(r.latenciesMs, 50), percentile(r.latenciesMs, 90),
        percentile(r.latenciesMs, 99), r.latenciesMs.empty() ? 0.0 : r.latenciesMs.back(), r.requests,
        r.failures);
    std::fflush(stdout);
}

// Connections that made one request and then stay open and silent, as
// clients that went quiet do; spread over loopback addresses as many
// clients would be.
struct IdleConnections
{
    std::vector<std::unique_ptr<RawClient>> clients;

    IdleConnections(int port, int count)
    {
        for (int i = 0; i < count; ++i) {
            auto client = std::make_unique<RawClient>(port, "127.0.1." + std::to_string(1 + i / 25));
            if (client->send("GET /vc/v1/explorer/top?limit=1 HTTP/1.1\r\nHost: b\r\n"
                             "X-Installation-Id: idle\r\n\r\n") &&
                client->readAnswer(std::chrono::seconds(2)) == 200)
                clients.push_back(std::move(client));
        }
    }
};

// 32 clients each sending header lines until cut off (at most 8 MB each).
void endlessHeaders(int port)
{
    std::vector<std::thread> threads;
    for (int c = 0; c < 32; ++c) {
        threads.emplace_back([port, c] {
            RawClient client(port, "127.0.2." + std::to_string(1 + c % 8));
            const std::string line = "X-Filler: " + std::string(200, 'h') + "\r\n";
            bool open = client.send("GET /vc/v1/explorer/top HTTP/1.1\r\nHost: b\r\n");
            for (int i = 0; open && i < 40000; ++i)
                open = client.send(line);
        });
    }
    for (auto &thread : threads)
        thread.join();
}

// 64 clients posting the largest analytics batch the server takes, all at
// once, and 64 announcing bodies beyond every limit.
void largeBodies(int port)
{
    std::vector<std::thread> threads;
    const std::string batch(4 * 1024 * 1024, 'b');
    for (int c = 0; c < 128; ++c) {
        threads.emplace_back([&, c] {
            RawClient client(port, "127.0.3." + std::to_string(1 + c % 4));
            const bool huge = c % 2;
            if (client.send(std::string("POST /vc/v1/analytics HTTP/1.1\r\nHost: b\r\n") +
                            "Content-Type: application/octet-stream\r\nContent-Length: " +
                            (huge ? "1073741824" : std::to_string(batch.size())) + "\r\n\r\n") &&
                !huge)
                client.send(batch);
            client.readAnswer(std::chrono::seconds(2));
        });
    }
    for (auto &thread : threads)
        thread.join();
}

void memoryUnderAttack(const std::string &dataDir)
{
    ServerProcess program({"--data-dir", dataDir, "--no-bundled-import", "--rate-limit", "0"});
    if (!program.started()) {
        std::printf("server program did not start\n");
        return;
    }
    std::printf("server program RSS at rest: %ld KiB\n", program.residentKiB());
    const auto t0 = Clock::now();
    endlessHeaders(program.port());
    std::printf("endless headers (32 clients):  peak RSS %ld KiB, %.1f s\n", program.peakResidentKiB(),
                std::chrono::duration<double>(Clock::now() - t0).count());
    const auto t1 = Clock::now();
    largeBodies(program.port());
    std::printf("large bodies (64 x 4 MiB + 64 x 1 GiB announced): peak RSS %ld KiB, %.1f s\n",
                program.peakResidentKiB(), std::chrono::duration<double>(Clock::now() - t1).count());
    std::fflush(stdout);
}

} // namespace

int serveOnly(double seconds)
{
    char pattern[] = "/tmp/glint-bench-server-XXXXXX";
    const std::string dir = mkdtemp(pattern);
    fillCatalogue(dir + "/data");
    ServerConfig config;
    config.port = 0;
    config.dataDir = dir + "/data";
    config.importBundled = false;
    config.rateLimit = 0;
    config.limits.threads = 2;
    LensServer server(config);
    std::string error;
    const int devNull = open("/dev/null", O_WRONLY);
    const int savedStdout = dup(1);
    dup2(devNull, 1);
    const bool started = server.start(&error);
    dup2(savedStdout, 1);
    if (!started) {
        std::fprintf(stderr, "server failed: %s\n", error.c_str());
        return 1;
    }
    std::printf("serving %d lenses on port %d for %.0f s\n", kLenses, server.port(), seconds);
    std::fflush(stdout);
    dup2(devNull, 1);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    server.stop();
    std::error_code ec;
    fs::remove_all(dir, ec);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc > 2 && std::string(argv[1]) == "--serve")
        return serveOnly(std::atof(argv[2]));
    const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
    const int clients = argc > 2 ? std::atoi(argv[2]) : 16;
    const int idleCount = argc > 3 ? std::atoi(argv[3]) : 500;
    char pattern[] = "/tmp/glint-bench-server-XXXXXX";
    const std::string dir = mkdtemp(pattern);

    const auto fillStart = Clock::now();
    fillCatalogue(dir + "/data");
    std::printf("catalogue of %d lenses written in %.2f s\n", kLenses,
                std::chrono::duration<double>(Clock::now() - fillStart).count());

    {
        // The search itself, without HTTP, for comparison.
        Database database(dir + "/data/lenses.db");
        Catalogue catalogue(database);
        LensIndex index(LensUrls("http://127.0.0.1:8490", "/vc/v1", "https://glint.camera/unlock/?uid="));
        index.rebuild(catalogue.all());
        // Thread CPU time, so that other load on the machine counts less.
        auto cpuMicroseconds = [] {
            timespec t{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
            return double(t.tv_sec) * 1e6 + double(t.tv_nsec) / 1e3;
        };
        for (const auto &query : kQueries) {
            const double t0 = cpuMicroseconds();
            size_t bytes = 0;
            for (int i = 0; i < 200; ++i)
                bytes += index.searchJson(query, 100).size();
            std::printf("index search %-12s %7.1f us CPU per query, %zu bytes\n",
                        ("\"" + query + "\"").c_str(), (cpuMicroseconds() - t0) / 200, bytes / 200);
        }
    }

    ServerConfig config;
    config.port = 0;
    config.dataDir = dir + "/data";
    config.importBundled = false;
    config.rateLimit = 0;
    // Same connection settings as the program's defaults; more connections
    // per address for the idle crowd.
    config.limits.maxConnectionsPerAddress = 64;
    LensServer server(config);
    // The request log goes to standard output; keep it out of the figures.
    std::fflush(stdout);
    const int savedStdout = dup(1);
    const int devNull = open("/dev/null", O_WRONLY);
    dup2(devNull, 1);
    std::string error;
    if (!server.start(&error)) {
        dup2(savedStdout, 1);
        std::fprintf(stderr, "server failed: %s\n", error.c_str());
        return 1;
    }
    auto restoreAndPrint = [&](const char *name, const Result &r) {
        std::fflush(stdout);
        dup2(savedStdout, 1);
        report(name, r);
        dup2(devNull, 1);
    };

    restoreAndPrint("warm-up /explorer/top", load(server.port(), clients, 1.0, [](auto &c, auto &) {
                        return c.Get("/vc/v1/explorer/top?country=US&offset=0&limit=50");
                    }));
    const MakeRequest top = [](auto &c, auto &random) {
        const int offset = int(random() % (kLenses / 50)) * 50;
        return c.Get(
            ("/vc/v1/explorer/top?country=US&offset=" + std::to_string(offset) + "&limit=50").c_str());
    };
    const MakeRequest search = [&](auto &c, auto &random) {
        const nlohmann::json body = {{"query", kQueries[random() % kQueries.size()]}};
        return c.Post("/vc/v1/explorer/search", body.dump(), "application/json");
    };
    restoreAndPrint("/explorer/top", load(server.port(), clients, seconds, top));
    restoreAndPrint("/explorer/search", load(server.port(), clients, seconds, search));
    // Idle connections are opened afresh for each run: the server closes a
    // silent one after its idle and header timeouts.
    for (const auto &[name, request] : {std::pair{"top + idle", top}, std::pair{"search + idle", search}}) {
        IdleConnections idle(server.port(), idleCount);
        std::fflush(stdout);
        dup2(savedStdout, 1);
        std::printf("%zu idle connections held\n", idle.clients.size());
        std::fflush(stdout);
        dup2(devNull, 1);
        restoreAndPrint(name, load(server.port(), clients, seconds, request));
    }
    server.stop();
    dup2(savedStdout, 1);
    memoryUnderAttack(dir + "/data");
    std::error_code ec;
    fs::remove_all(dir, ec);
    return 0;
}
