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
#include <thread>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

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

    // One raw request on a connection of its own; the answer's status.
    int status(const std::string &request, const std::string &from = "127.0.0.1",
               std::string *body = nullptr) const
    {
        RawClient client(port(), from);
        client.send(request);
        return client.readAnswer(5s, body);
    }
    static std::string get(const std::string &path,
                           const std::string &headers = "X-Installation-Id: attack\r\n")
    {
        return "GET " + path + " HTTP/1.1\r\nHost: test\r\n" + headers + "\r\n";
    }

    // A normal client's request from 127.0.0.1 still gets its answer, soon.
    void expectServed(std::chrono::milliseconds within = 5000ms) const
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(status(get("/vc/v1/explorer/top?limit=10")), 200);
        EXPECT_LT(std::chrono::steady_clock::now() - start, within);
        EXPECT_LT(process->peakResidentKiB(), kMemoryGoalKiB);
    }
};

void inParallel(int count, const std::function<void(int)> &work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work, i);
    for (auto &thread : threads)
        thread.join();
}

int postCrash(const Target &t, const std::string &content, const std::string &from = "127.0.0.1")
{
    const std::string body = "--XyZ\r\nContent-Disposition: form-data; name=\"log\"; filename=\"log.txt\"\r\n"
                             "Content-Type: text/plain\r\n\r\n" +
                             content + "\r\n--XyZ--\r\n";
    return t.status("POST /crash/upload HTTP/1.1\r\nHost: test\r\nContent-Type: multipart/form-data; "
                    "boundary=XyZ\r\nContent-Length: " +
                        std::to_string(body.size()) + "\r\n\r\n" + body,
                    from);
}

} // namespace

TEST(Attacks, ManyPartRangesNeverAnswerMoreThanTheFile)
{
    Target t;
    const auto whole = httplib::Client("127.0.0.1", t.port()).Get("/vc/v1/archives/moon.zip");
    ASSERT_TRUE(whole && whole->status == 200);
    const std::string &file = whole->body;

    std::string parts = "bytes=0-";
    for (int i = 0; i < 2000; ++i)
        parts += ",0-";
    RawClient client(t.port());
    for (int i = 0; i < 20; ++i) {
        std::string body;
        client.send("GET /vc/v1/archives/moon.zip HTTP/1.1\r\nHost: test\r\nRange: " + parts + "\r\n\r\n");
        EXPECT_EQ(client.readAnswer(5s, &body), 200);
        EXPECT_TRUE(body == file) << body.size() << " bytes";
    }

    // A range outside the file is refused.
    EXPECT_EQ(t.status(Target::get("/vc/v1/archives/moon.zip",
                                   "Range: bytes=" + std::to_string(file.size()) + "-\r\n")),
              416);
}

TEST(Attacks, EndlessHeadersAreCutOffWithMemoryBounded)
{
    Target t;
    std::atomic<int> cutOff{0};
    inParallel(16, [&](int c) {
        RawClient client(t.port(), "127.0.0." + std::to_string(2 + c % 4));
        bool sending = client.send("GET /vc/v1/explorer/top HTTP/1.1\r\nHost: test\r\n");
        const std::string line = "X-Filler: " + std::string(200, 'h') + "\r\n";
        // At most 8 MB per client: the server must stop it long before.
        for (int i = 0; sending && i < 40000; ++i)
            sending = client.send(line);
        cutOff += !sending || client.closedWithin(3s);
    });
    EXPECT_EQ(cutOff, 16);

    // Many small header lines fit in memory but not under the count limit.
    std::string headers;
    for (int i = 0; i < 100; ++i)
        headers += "X-" + std::to_string(i) + ": v\r\n";
    EXPECT_EQ(t.status(Target::get("/vc/v1/explorer/top", headers)), 431);
    t.expectServed();
}

TEST(Attacks, LargeBodiesInParallelAreRefusedOrBoundedInMemory)
{
    Target t({"--max-analytics-body", "1048576", "--max-buffered-bodies", "8388608"});
    // Declared sizes beyond a route's limit are refused before any body byte.
    std::atomic<int> refused{0};
    inParallel(32, [&](int) {
        refused += t.status("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: test\r\nX-Installation-Id: big\r\n"
                            "Content-Type: application/json\r\nContent-Length: 33554432\r\n\r\n",
                            "127.0.0.2") == 413;
    });
    EXPECT_EQ(refused, 32);

    // Bodies within the limit, sent at once by 32 clients: the server holds
    // at most its budget of them and turns the others away for now.
    const std::string batch(1048576, 'b');
    std::atomic<int> stored{0}, busy{0}, other{0}, ready{0};
    inParallel(32, [&](int) {
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
    EXPECT_GE(stored, 1);
    EXPECT_GE(busy, 1);
    EXPECT_EQ(other, 0);

    // Requests that take no body, bodies without a length.
    EXPECT_EQ(t.status(Target::get("/vc/v1/explorer/top", "X-Installation-Id: a\r\nContent-Length: 10\r\n")),
              413);
    EXPECT_EQ(t.status("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: t\r\nX-Installation-Id: a\r\n"
                       "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n"),
              411);
    t.expectServed();
}

TEST(Attacks, IdleSlowAndCrowdingConnectionsLeaveRoomForOthers)
{
    Target t({"--max-connections-per-address", "400", "--header-timeout", "2", "--idle-timeout", "30",
              "--body-timeout", "1"});
    std::vector<std::unique_ptr<RawClient>> idle, slow;
    for (int i = 0; i < 300; ++i)
        idle.push_back(std::make_unique<RawClient>(t.port(), "127.0.0.2"));
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
    t.expectServed(2000ms);

    // The header deadline ends both kinds: nothing, or too little, arrived.
    int closed = 0;
    for (auto &client : slow)
        closed += client->closedWithin(4s);
    stop = true;
    trickle.join();
    for (auto &client : idle)
        closed += client->closedWithin(2s);
    EXPECT_EQ(closed, 364);

    // A body that arrives too slowly is cut off at the body deadline.
    RawClient slowBody(t.port(), "127.0.0.4");
    slowBody.send("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: t\r\nX-Installation-Id: slow\r\n"
                  "Content-Type: application/json\r\nContent-Length: 1000\r\n\r\n{");
    const auto start = std::chrono::steady_clock::now();
    bool cut = false;
    for (int i = 0; i < 30 && !cut; ++i)
        cut = !slowBody.send(" ") || slowBody.closedWithin(100ms);
    EXPECT_TRUE(cut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
    t.expectServed();

    Target capped({"--max-connections-per-address", "8"});
    std::vector<std::unique_ptr<RawClient>> crowd;
    for (int i = 0; i < 20; ++i)
        crowd.push_back(std::make_unique<RawClient>(capped.port(), "127.0.0.5"));
    int turnedAway = 0;
    for (auto &client : crowd)
        turnedAway += client->closedWithin(300ms);
    EXPECT_EQ(turnedAway, 12);
    capped.expectServed();
}

TEST(Attacks, CrashFolderKeepsItsQuotaAndDropsTheOldestFirst)
{
    Target t({"--crash-quota", "3000", "--crashes-per-hour", "0"});
    const fs::path crashes = t.dir / "data/crashes";
    // What the server did not make stays, whatever the quota: a stray file,
    // a folder named like a report, and a row pointing outside the folder.
    writeFile(crashes / "123-0/keep", "mine");
    writeFile(crashes / "notes.txt", "mine");
    writeFile(t.dir / "elsewhere/keep", "mine");
    SQLite::Database(t.dir / "data/lenses.db", SQLite::OPEN_READWRITE)
        .exec("INSERT INTO crash_reports (path, parts, size, file, received_at) VALUES ('/crash', '[]', 900, "
              "'" +
              (t.dir / "elsewhere") + "', 0)");
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(postCrash(t, std::string(1000, char('a' + i))), 201) << i;
    EXPECT_EQ(postCrash(t, std::string(3001, 'x')), 413);

    SQLite::Database db(t.dir / "data/lenses.db");
    SQLite::Statement q(db, "SELECT size, file FROM crash_reports ORDER BY id");
    int64_t total = 0;
    std::string kept;
    while (q.executeStep()) {
        total += q.getColumn(0).getInt64();
        kept += readFile(q.getColumn(1).getString() + "/0-log");
    }
    EXPECT_LE(total, 3000);
    EXPECT_EQ(kept, std::string(1000, 'd') + std::string(1000, 'e') + std::string(1000, 'f'));
    size_t folders = 0;
    for (const auto &entry : fs::directory_iterator(crashes))
        folders += entry.is_directory();
    EXPECT_EQ(folders, 4u); // three reports and the stray folder
    for (const fs::path &mine :
         {crashes / "123-0/keep", crashes / "notes.txt", fs::path(t.dir / "elsewhere/keep")})
        EXPECT_EQ(readFile(mine), "mine") << mine;

    Target limited({"--crashes-per-hour", "2"});
    for (const int status : {201, 201, 429})
        EXPECT_EQ(postCrash(limited, "report", "127.0.0.6"), status);
    EXPECT_EQ(postCrash(limited, "elsewhere", "127.0.0.7"), 201);
}

TEST(Attacks, ChangingHeadersDoesNotEscapeTheRateLimit)
{
    Target t({"--rate-by", "address", "--rate-limit", "0.1", "--rate-burst", "3", "--file-rate-limit", "0.1",
              "--file-rate-burst", "3"});
    auto status = [&](const std::string &path, const std::string &id, const std::string &extra = "") {
        return t.status(Target::get(path, "X-Installation-Id: " + id + "\r\n" + extra));
    };
    // Downloads count too, on a budget of their own.
    for (const std::string path : {"/vc/v1/explorer/scheduled", "/vc/v1/archives/sun.zip"}) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(status(path, "id-" + std::to_string(i)), 200) << path;
        EXPECT_EQ(status(path, "id-new"), 429) << path;
    }
    EXPECT_EQ(status("/vc/v1/explorer/scheduled", "id-new", "X-Real-IP: 10.0.0.9\r\n"), 429);

    // Behind a trusted front server the forwarded address is the client.
    Target proxied(
        {"--rate-by", "address", "--rate-limit", "0.1", "--rate-burst", "2", "--trusted-proxy", "127.0.0.1"});
    auto viaProxy = [&](const std::string &client, const std::string &id) {
        return proxied.status(Target::get("/vc/v1/explorer/scheduled",
                                          "X-Installation-Id: " + id + "\r\nX-Real-IP: " + client + "\r\n"));
    };
    EXPECT_EQ(viaProxy("203.0.113.1", "a"), 200);
    EXPECT_EQ(viaProxy("203.0.113.1", "b"), 200);
    EXPECT_EQ(viaProxy("203.0.113.1", "c"), 429);
    EXPECT_EQ(viaProxy("203.0.113.2", "c"), 200);
}
