// Hostile clients against the server program, over real sockets from
// several loopback addresses, with the server's memory read from /proc.
#include "rawclient.h"
#include "serverprocess.h"
#include "testlens.h"

#include <SQLiteCpp/Database.h>
#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

namespace {

constexpr long kMemoryGoalKiB = 150 * 1024;

// A server program over its own data folder with two lenses.
struct Target
{
    TempDir dir;
    std::unique_ptr<ServerProcess> process;

    explicit Target(std::vector<std::string> extra = {})
    {
        writeLens(dir / "bundled", {"sun", "Sun", "Sky", "", 2});
        writeLens(dir / "bundled", {"moon", "Moon", "Sky", "", 3});
        std::vector<std::string> args = {"--data-dir",        dir / "data",       "--key",
                                         makeKey(dir.path()), "--bundled-lenses", dir / "bundled"};
        args.insert(args.end(), extra.begin(), extra.end());
        process = std::make_unique<ServerProcess>(args);
        EXPECT_TRUE(process->started()) << process->output();
    }

    int port() const { return process->port(); }

    std::string get(const std::string &path) const
    {
        return "GET " + path + " HTTP/1.1\r\nHost: test\r\nX-Installation-Id: attack-test\r\n\r\n";
    }

    // A normal client's request from 127.0.0.1; its status and time taken.
    std::pair<int, std::chrono::milliseconds> normalRequest() const
    {
        const auto start = std::chrono::steady_clock::now();
        RawClient client(port());
        client.send(get("/vc/v1/explorer/top?limit=10"));
        const int status = client.readAnswer(5s);
        return {status, std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now() - start)};
    }
};

std::string multipart(const std::string &boundary, const std::string &content)
{
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"log\"; filename=\"log.txt\"\r\n" +
           "Content-Type: text/plain\r\n\r\n" + content + "\r\n--" + boundary + "--\r\n";
}

int postCrash(int port, const std::string &content, const std::string &from = "127.0.0.1")
{
    const std::string body = multipart("XyZ", content);
    RawClient client(port, from);
    client.send(
        "POST /crash/upload HTTP/1.1\r\nHost: test\r\nContent-Type: multipart/form-data; boundary=XyZ\r\n"
        "Content-Length: " +
        std::to_string(body.size()) + "\r\n\r\n" + body);
    return client.readAnswer(5s);
}

} // namespace

TEST(Attacks, ManyPartRangesNeverAnswerMoreThanTheFile)
{
    Target t;
    httplib::Client plain("127.0.0.1", t.port());
    const auto whole = plain.Get("/vc/v1/archives/moon.zip");
    ASSERT_TRUE(whole && whole->status == 200);
    const size_t size = whole->body.size();

    std::string parts = "bytes=0-";
    for (int i = 0; i < 2000; ++i)
        parts += ",0-";
    size_t received = 0;
    RawClient client(t.port());
    for (int i = 0; i < 20; ++i) {
        std::string body;
        client.send("GET /vc/v1/archives/moon.zip HTTP/1.1\r\nHost: test\r\nRange: " + parts + "\r\n\r\n");
        EXPECT_EQ(client.readAnswer(5s, &body), 200);
        EXPECT_TRUE(body == whole->body) << body.size() << " bytes";
        received += body.size();
    }
    EXPECT_EQ(received, 20 * size);

    // One range is honoured; one outside the file is refused.
    const std::vector<std::tuple<std::string, int, std::string>> ranges = {
        {"bytes=0-9", 206, whole->body.substr(0, 10)},
        {"bytes=-5", 206, whole->body.substr(size - 5)},
        {"bytes=10-", 206, whole->body.substr(10)},
        {"bytes=" + std::to_string(size) + "-", 416, ""},
        {"bytes=9-3", 200, whole->body},
        {"lines=1-2", 200, whole->body},
    };
    for (const auto &[range, status, expected] : ranges) {
        const auto res = plain.Get("/vc/v1/archives/moon.zip", {{"Range", range}});
        ASSERT_TRUE(res) << range;
        EXPECT_EQ(res->status, status) << range;
        if (status != 416)
            EXPECT_TRUE(res->body == expected) << range << ": " << res->body.size() << " bytes";
    }
}

TEST(Attacks, EndlessHeadersAreCutOffWithMemoryBounded)
{
    Target t;
    std::atomic<int> cutOff{0};
    std::vector<std::thread> senders;
    for (int c = 0; c < 16; ++c) {
        senders.emplace_back([&, c] {
            RawClient client(t.port(), "127.0.0." + std::to_string(2 + c % 4));
            std::string head = "GET /vc/v1/explorer/top HTTP/1.1\r\nHost: test\r\n";
            bool sending = client.send(head);
            const std::string line = "X-Filler: " + std::string(200, 'h') + "\r\n";
            // At most 8 MB per client: the server must stop it long before.
            for (int i = 0; sending && i < 40000; ++i)
                sending = client.send(line);
            if (!sending || client.closedWithin(3s))
                ++cutOff;
        });
    }
    for (auto &sender : senders)
        sender.join();
    EXPECT_EQ(cutOff, 16);
    EXPECT_LT(t.process->peakResidentKiB(), kMemoryGoalKiB);

    // Many small header lines fit in memory but not under the count limit.
    RawClient many(t.port());
    std::string request = "GET /vc/v1/explorer/top HTTP/1.1\r\nHost: test\r\n";
    for (int i = 0; i < 100; ++i)
        request += "X-" + std::to_string(i) + ": v\r\n";
    many.send(request + "\r\n");
    std::string body;
    EXPECT_EQ(many.readAnswer(3s, &body), 431);
    EXPECT_EQ(json::parse(body, nullptr, false).value("error", ""), "too_many_headers");
    EXPECT_EQ(t.normalRequest().first, 200);
}

TEST(Attacks, LargeBodiesInParallelAreRefusedOrBoundedInMemory)
{
    Target t({"--max-analytics-body", "1048576", "--max-buffered-bodies", "8388608"});
    // Declared sizes beyond a route's limit are refused before any body byte.
    std::vector<std::thread> clients;
    std::atomic<int> refused{0};
    for (int c = 0; c < 32; ++c) {
        clients.emplace_back([&] {
            RawClient client(t.port(), "127.0.0.2");
            client.send("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: test\r\nX-Installation-Id: big\r\n"
                        "Content-Type: application/json\r\nContent-Length: 33554432\r\n\r\n");
            if (client.readAnswer(3s) == 413)
                ++refused;
        });
    }
    for (auto &client : clients)
        client.join();
    EXPECT_EQ(refused, 32);

    // Bodies within the limit, sent at once by 32 clients: the server holds
    // at most its budget of them and turns the others away for now.
    const std::string batch(1048576, 'b');
    std::atomic<int> stored{0}, busy{0}, other{0};
    std::atomic<int> ready{0};
    clients.clear();
    for (int c = 0; c < 32; ++c) {
        clients.emplace_back([&] {
            RawClient client(t.port(), "127.0.0.3");
            client.send(
                "POST /vc/v1/analytics HTTP/1.1\r\nHost: test\r\nContent-Type: application/octet-stream\r\n"
                "Content-Length: 1048576\r\n\r\n");
            ++ready;
            for (int i = 0; i < 100 && ready < 32; ++i)
                std::this_thread::sleep_for(10ms);
            int status = client.readAnswer(300ms);
            if (status == 0 && client.send(batch))
                status = client.readAnswer(20s);
            (status == 200 ? stored : status == 503 ? busy : other)++;
        });
    }
    for (auto &client : clients)
        client.join();
    EXPECT_GE(stored, 1);
    EXPECT_GE(busy, 1);
    EXPECT_EQ(other, 0);
    EXPECT_LT(t.process->peakResidentKiB(), kMemoryGoalKiB);

    // Requests that take no body, and bodies without a length.
    RawClient get(t.port());
    get.send(
        "GET /vc/v1/explorer/top HTTP/1.1\r\nHost: t\r\nX-Installation-Id: a\r\nContent-Length: 10\r\n\r\n");
    EXPECT_EQ(get.readAnswer(3s), 413);
    RawClient chunked(t.port());
    chunked.send("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: t\r\nX-Installation-Id: a\r\n"
                 "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n");
    EXPECT_EQ(chunked.readAnswer(3s), 411);
}

TEST(Attacks, IdleAndSlowConnectionsLeaveRoomForOthers)
{
    Target t({"--max-connections-per-address", "400", "--header-timeout", "2", "--idle-timeout", "30"});
    std::vector<std::unique_ptr<RawClient>> idle;
    for (int i = 0; i < 300; ++i)
        idle.push_back(std::make_unique<RawClient>(t.port(), "127.0.0.2"));
    std::vector<std::unique_ptr<RawClient>> slow;
    for (int i = 0; i < 64; ++i)
        slow.push_back(std::make_unique<RawClient>(t.port(), "127.0.0.3"));
    std::atomic<bool> stop{false};
    std::thread trickle([&] {
        const std::string line = "GET /vc/v1/explorer/top HTTP/1.1\r\nHost: test\r\nX-Slow: ";
        for (size_t i = 0; i < 100 && !stop; ++i) {
            for (auto &client : slow)
                client->send(std::string(1, i < line.size() ? line[i] : 'z'));
            std::this_thread::sleep_for(50ms);
        }
    });
    std::this_thread::sleep_for(300ms);
    const auto [status, took] = t.normalRequest();
    EXPECT_EQ(status, 200);
    EXPECT_LT(took, 2000ms);

    // The header deadline ends both kinds: nothing, or too little, arrived.
    int closed = 0;
    for (auto &client : slow)
        closed += client->closedWithin(4s);
    stop = true;
    trickle.join();
    for (auto &client : idle)
        closed += client->closedWithin(2s);
    EXPECT_EQ(closed, 364);
    EXPECT_EQ(t.normalRequest().first, 200);
    EXPECT_LT(t.process->peakResidentKiB(), kMemoryGoalKiB);
}

TEST(Attacks, SlowBodiesAreCutOffAtTheBodyDeadline)
{
    Target t({"--body-timeout", "1"});
    RawClient slow(t.port(), "127.0.0.4");
    slow.send("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: t\r\nX-Installation-Id: slow\r\n"
              "Content-Type: application/json\r\nContent-Length: 1000\r\n\r\n{");
    const auto start = std::chrono::steady_clock::now();
    bool closed = false;
    for (int i = 0; i < 30 && !closed; ++i) {
        slow.send(" ");
        closed = slow.closedWithin(100ms);
    }
    EXPECT_TRUE(closed);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
    EXPECT_EQ(t.normalRequest().first, 200);
}

TEST(Attacks, ConnectionsPerAddressAreCapped)
{
    Target t({"--max-connections-per-address", "8"});
    std::vector<std::unique_ptr<RawClient>> crowd;
    for (int i = 0; i < 20; ++i)
        crowd.push_back(std::make_unique<RawClient>(t.port(), "127.0.0.5"));
    int turnedAway = 0;
    for (auto &client : crowd)
        turnedAway += client->closedWithin(300ms);
    EXPECT_EQ(turnedAway, 12);
    EXPECT_EQ(t.normalRequest().first, 200);
}

TEST(Attacks, CrashFolderKeepsItsQuotaAndDropsTheOldestFirst)
{
    Target t({"--crash-quota", "3000", "--crashes-per-hour", "0"});
    const fs::path crashes = t.dir / "data/crashes";
    // What the server did not make stays, whatever the quota: a stray file,
    // a folder named like a report, and a row pointing outside the folder.
    fs::create_directories(crashes / "123-0");
    writeFile(crashes / "123-0/keep", "mine");
    writeFile(crashes / "notes.txt", "mine");
    fs::create_directories(t.dir / "elsewhere");
    writeFile(t.dir / "elsewhere/keep", "mine");
    {
        SQLite::Database db(t.dir / "data/lenses.db", SQLite::OPEN_READWRITE);
        db.exec("INSERT INTO crash_reports (path, parts, size, file, received_at) VALUES ('/crash', '[]', "
                "900, '" +
                (t.dir / "elsewhere") + "', 0)");
    }
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(postCrash(t.port(), std::string(1000, char('a' + i))), 201) << i;
    EXPECT_EQ(postCrash(t.port(), std::string(3001, 'x')), 413);

    SQLite::Database db(t.dir / "data/lenses.db");
    SQLite::Statement q(db, "SELECT size, file FROM crash_reports ORDER BY id");
    int64_t total = 0;
    std::vector<std::string> kept;
    while (q.executeStep()) {
        total += q.getColumn(0).getInt64();
        kept.push_back(readFile(q.getColumn(1).getString() + "/0-log"));
    }
    EXPECT_LE(total, 3000);
    EXPECT_EQ(kept, (std::vector<std::string>{std::string(1000, 'd'), std::string(1000, 'e'),
                                              std::string(1000, 'f')}));
    size_t folders = 0;
    for (const auto &entry : fs::directory_iterator(crashes))
        folders += entry.is_directory();
    EXPECT_EQ(folders, 4u); // three reports and the stray folder
    EXPECT_EQ(readFile(crashes / "123-0/keep"), "mine");
    EXPECT_EQ(readFile(crashes / "notes.txt"), "mine");
    EXPECT_EQ(readFile(t.dir / "elsewhere/keep"), "mine");

    Target limited({"--crashes-per-hour", "2"});
    EXPECT_EQ(postCrash(limited.port(), "one", "127.0.0.6"), 201);
    EXPECT_EQ(postCrash(limited.port(), "two", "127.0.0.6"), 201);
    EXPECT_EQ(postCrash(limited.port(), "three", "127.0.0.6"), 429);
    EXPECT_EQ(postCrash(limited.port(), "elsewhere", "127.0.0.7"), 201);
}

TEST(Attacks, ChangingHeadersDoesNotEscapeTheRateLimit)
{
    Target t({"--rate-by", "address", "--rate-limit", "0.1", "--rate-burst", "3", "--file-rate-limit", "0.1",
              "--file-rate-burst", "3"});
    auto status = [&](const std::string &path, const std::string &installation,
                      const std::string &extra = "") {
        RawClient client(t.port());
        client.send("GET " + path + " HTTP/1.1\r\nHost: test\r\nX-Installation-Id: " + installation + "\r\n" +
                    extra + "\r\n");
        return client.readAnswer(3s);
    };
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(status("/vc/v1/explorer/scheduled", "id-" + std::to_string(i)), 200);
    EXPECT_EQ(status("/vc/v1/explorer/scheduled", "id-new"), 429);
    EXPECT_EQ(status("/vc/v1/explorer/scheduled", "id-new", "X-Real-IP: 10.0.0.9\r\n"), 429);
    // Downloads count too, on a budget of their own.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(status("/vc/v1/archives/sun.zip", "id-" + std::to_string(i)), 200);
    EXPECT_EQ(status("/vc/v1/archives/sun.zip", "id-new"), 429);

    // Behind a trusted front server the forwarded address is the client.
    Target proxied(
        {"--rate-by", "address", "--rate-limit", "0.1", "--rate-burst", "2", "--trusted-proxy", "127.0.0.1"});
    auto viaProxy = [&](const std::string &client, const std::string &installation) {
        RawClient c(proxied.port());
        c.send("GET /vc/v1/explorer/scheduled HTTP/1.1\r\nHost: t\r\nX-Installation-Id: " + installation +
               "\r\nX-Real-IP: " + client + "\r\n\r\n");
        return c.readAnswer(3s);
    };
    EXPECT_EQ(viaProxy("203.0.113.1", "a"), 200);
    EXPECT_EQ(viaProxy("203.0.113.1", "b"), 200);
    EXPECT_EQ(viaProxy("203.0.113.1", "c"), 429);
    EXPECT_EQ(viaProxy("203.0.113.2", "c"), 200);
}
