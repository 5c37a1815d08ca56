// Requests per second and latency percentiles of "/explorer/top" and
// "/explorer/search" with a catalogue of 10,000 lenses, 16 concurrent
// keep-alive clients, everything on loopback; then the same while 500 idle
// keep-alive connections are held open, and the resident memory of the
// server program (from /proc) under an endless header attack and a parallel
// large body attack.
//
// Usage: bench_server [seconds per endpoint, default 5] [clients, default 16]
//                     [idle connections, default 500]
//        bench_server --serve SECONDS
// The second form only fills the catalogue and serves it for that long on
// the printed port, for an external load generator such as wrk.
#include "benchsupport.h"
#include "catalogue.h"
#include "database.h"
#include "lensindex.h"
#include "lensrecord.h"
#include "lensserver.h"
#include "lenssigner.h"
#include "rawclient.h"
#include "serverprocess.h"

#include <atomic>
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

namespace fs = std::filesystem;
using namespace glint::server;
using Clock = std::chrono::steady_clock;
using Bench::inParallel;

namespace {

constexpr int kLenses = 10000;
const std::vector<std::string> kWords = {"Sun",   "Moon",  "Neon",  "Cat",    "Dog",   "Glitter", "Retro",
                                         "Space", "Party", "Cloud", "Rain",   "Fire",  "Ice",     "Crown",
                                         "Mask",  "Star",  "Pixel", "Dream",  "Wave",  "Shades",  "Heart",
                                         "Ghost", "Robot", "Candy", "Forest", "Ocean", "Comic",   "Vintage"};
const std::vector<std::string> kQueries = {"sun", "neon cat", "studio 12", "ghost", "ret", "zzz", "e"};

// The figures go here; standard output takes the server's request log,
// which is sent to /dev/null.
FILE *g_out = stdout;

void fillCatalogue(const std::string &dataDir)
{
    fs::create_directories(dataDir);
    Database database(dataDir + "/lenses.db");
    Catalogue catalogue(database);
    std::mt19937 random(42);
    auto word = [&] { return kWords[random() % kWords.size()]; };
    database.db().exec("BEGIN");
    for (int i = 0; i < kLenses; ++i) {
        LensRecord lens;
        lens.id = "lens-" + std::to_string(i);
        lens.name = word() + " " + word() + " " + std::to_string(i);
        lens.author = word() + " Studio " + std::to_string(i % 300);
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

using MakeRequest = std::function<httplib::Result(httplib::Client &, std::mt19937 &)>;

// Clients send requests back to back on keep-alive connections for the
// given time; prints the rate and the latencies.
void load(const char *name, int port, int clients, double seconds, const MakeRequest &request)
{
    std::vector<std::vector<double>> latencies(static_cast<size_t>(clients));
    std::atomic<long> failures{0};
    const auto start = Clock::now();
    const auto end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    inParallel(clients, [&](int c) {
        httplib::Client client("127.0.0.1", port);
        client.set_keep_alive(true);
        client.set_tcp_nodelay(true);
        client.set_default_headers({{"X-Installation-Id", "bench-" + std::to_string(c)}});
        std::mt19937 random(static_cast<unsigned>(c));
        while (Clock::now() < end) {
            const auto t0 = Clock::now();
            const auto res = request(client, random);
            latencies[size_t(c)].push_back(Bench::msSince(t0));
            failures += !res || res->status != 200 || res->body.size() < 12;
        }
    });
    std::vector<double> all;
    for (auto &list : latencies)
        all.insert(all.end(), list.begin(), list.end());
    std::fprintf(g_out, "%-22s %8.0f req/s  %s, %ld failed\n", name,
                 double(all.size()) / (Bench::msSince(start) / 1000), Bench::summary(all).c_str(),
                 failures.load());
    std::fflush(g_out);
}

// Connections that made one request and then stay open and silent, as
// clients that went quiet do; spread over loopback addresses as many
// clients would be.
std::vector<std::unique_ptr<RawClient>> idleConnections(int port, int count)
{
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < count; ++i) {
        auto client = std::make_unique<RawClient>(port, "127.0.1." + std::to_string(1 + i / 25));
        if (client->send(
                "GET /vc/v1/explorer/top?limit=1 HTTP/1.1\r\nHost: b\r\nX-Installation-Id: idle\r\n\r\n") &&
            client->readAnswer(std::chrono::seconds(2)) == 200)
            clients.push_back(std::move(client));
    }
    return clients;
}

void memoryUnderAttack(const std::string &dataDir)
{
    ServerProcess program({"--data-dir", dataDir, "--no-bundled-import", "--rate-limit", "0"});
    if (!program.started())
        return void(std::fprintf(g_out, "server program did not start\n"));
    std::fprintf(g_out, "server program RSS at rest: %ld KiB\n", program.residentKiB());
    // 32 clients each sending header lines until cut off (at most 8 MB each).
    auto start = Clock::now();
    inParallel(32, [&](int c) {
        RawClient client(program.port(), "127.0.2." + std::to_string(1 + c % 8));
        const std::string line = "X-Filler: " + std::string(200, 'h') + "\r\n";
        bool open = client.send("GET /vc/v1/explorer/top HTTP/1.1\r\nHost: b\r\n");
        for (int i = 0; open && i < 40000; ++i)
            open = client.send(line);
    });
    std::fprintf(g_out, "endless headers (32 clients):  peak RSS %ld KiB, %.1f s\n",
                 program.peakResidentKiB(), Bench::msSince(start) / 1000);
    // 64 clients posting the largest analytics batch the server takes, all
    // at once, and 64 announcing bodies beyond every limit.
    start = Clock::now();
    const std::string batch(4 * 1024 * 1024, 'b');
    inParallel(128, [&](int c) {
        RawClient client(program.port(), "127.0.3." + std::to_string(1 + c % 4));
        const bool huge = c % 2;
        if (client.send(
                "POST /vc/v1/analytics HTTP/1.1\r\nHost: b\r\nContent-Type: application/octet-stream\r\n"
                "Content-Length: " +
                (huge ? "1073741824" : std::to_string(batch.size())) + "\r\n\r\n") &&
            !huge)
            client.send(batch);
        client.readAnswer(std::chrono::seconds(2));
    });
    std::fprintf(g_out, "large bodies (64 x 4 MiB + 64 x 1 GiB announced): peak RSS %ld KiB, %.1f s\n",
                 program.peakResidentKiB(), Bench::msSince(start) / 1000);
}

// The index's search alone, without HTTP, in thread CPU time so that other
// load on the machine counts less.
void searchWithoutHttp(const std::string &dataDir)
{
    Database database(dataDir + "/lenses.db");
    Catalogue catalogue(database);
    LensIndex index(LensUrls("http://127.0.0.1:8490", "/vc/v1", "https://glint.camera/unlock/?uid="));
    index.rebuild(catalogue.all());
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
        std::fprintf(g_out, "index search %-12s %7.1f us CPU per query, %zu bytes\n",
                     ("\"" + query + "\"").c_str(), (cpuMicroseconds() - t0) / 200, bytes / 200);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const bool serveOnly = argc > 2 && std::string(argv[1]) == "--serve";
    const double seconds = serveOnly ? std::atof(argv[2]) : argc > 1 ? std::atof(argv[1]) : 5.0;
    const int clients = !serveOnly && argc > 2 ? std::atoi(argv[2]) : 16;
    const int idleCount = !serveOnly && argc > 3 ? std::atoi(argv[3]) : 500;
    char pattern[] = "/tmp/glint-bench-server-XXXXXX";
    const std::string dataDir = std::string(mkdtemp(pattern)) + "/data";
    g_out = fdopen(dup(1), "w");
    dup2(open("/dev/null", O_WRONLY), 1);

    const auto fillStart = Clock::now();
    fillCatalogue(dataDir);
    std::fprintf(g_out, "catalogue of %d lenses written in %.2f s\n", kLenses,
                 Bench::msSince(fillStart) / 1000);
    if (!serveOnly)
        searchWithoutHttp(dataDir);

    ServerConfig config;
    config.port = 0;
    config.dataDir = dataDir;
    config.importBundled = false;
    config.rateLimit = 0;
    // Same connection settings as the program's defaults; more connections
    // per address for the idle crowd.
    config.limits.maxConnectionsPerAddress = 64;
    LensServer server(config);
    std::string error;
    if (!server.start(&error)) {
        std::fprintf(stderr, "server failed: %s\n", error.c_str());
        return 1;
    }
    if (serveOnly) {
        std::fprintf(g_out, "serving %d lenses on port %d for %.0f s\n", kLenses, server.port(), seconds);
        std::fflush(g_out);
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    } else {
        const MakeRequest top = [](auto &c, auto &random) {
            const int offset = int(random() % (kLenses / 50)) * 50;
            return c.Get(
                ("/vc/v1/explorer/top?country=US&offset=" + std::to_string(offset) + "&limit=50").c_str());
        };
        const MakeRequest search = [&](auto &c, auto &random) {
            const nlohmann::json body = {{"query", kQueries[random() % kQueries.size()]}};
            return c.Post("/vc/v1/explorer/search", body.dump(), "application/json");
        };
        load("warm-up /explorer/top", server.port(), clients, 1.0, top);
        load("/explorer/top", server.port(), clients, seconds, top);
        load("/explorer/search", server.port(), clients, seconds, search);
        // Idle connections are opened afresh for each run: the server closes
        // a silent one after its idle and header timeouts.
        for (const auto &[name, request] :
             {std::pair{"top + idle", top}, std::pair{"search + idle", search}}) {
            const auto idle = idleConnections(server.port(), idleCount);
            std::fprintf(g_out, "%zu idle connections held\n", idle.size());
            load(name, server.port(), clients, seconds, request);
        }
    }
    server.stop();
    if (!serveOnly)
        memoryUnderAttack(dataDir);
    std::error_code ec;
    fs::remove_all(fs::path(dataDir).parent_path(), ec);
    return 0;
}
