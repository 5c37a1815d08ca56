// The server program as a user runs it: alone, and scaled out with nginx
// (the shipped configuration, started as an unprivileged process on
// loopback) in front of two server processes sharing one data folder.
#include "rawclient.h"
#include "serverprocess.h"
#include "testlens.h"

#include <SQLiteCpp/Database.h>
#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <grp.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using Ids = std::vector<std::string>;

namespace {

const std::string kServer = GLINT_TEST_SERVER_BIN;

httplib::Result request(int port, const std::string &path, const std::string &body = "")
{
    httplib::Client client("127.0.0.1", port);
    client.set_default_headers({{"X-Installation-Id", "process-test"}});
    return body.empty() ? client.Get(path.c_str()) : client.Post(path.c_str(), body, "application/json");
}

json getJson(int port, const std::string &path)
{
    const auto res = request(port, path);
    if (!res || res->status != 200) {
        ADD_FAILURE() << path << ": " << (res ? res->body : "no answer");
        return json::object();
    }
    return json::parse(res->body);
}

// Polls for up to 15 s: the server notices catalogue changes by itself.
bool eventually(const std::function<bool()> &condition)
{
    for (int i = 0; i < 150 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return condition();
}

constexpr uid_t kNobody = 65534;

int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

// nginx with the shipped configuration; as root it drops to nobody first.
struct Nginx
{
    std::string runtime;
    pid_t pid = -1;

    Nginx(const std::string &runtimeDir, int port, const std::string &dataDir,
          const std::vector<int> &upstreams)
        : runtime(runtimeDir)
    {
        std::string servers;
        for (const int upstream : upstreams)
            servers += "server 127.0.0.1:" + std::to_string(upstream) + ";\n        ";
        std::string config = readFile(GLINT_SOURCE_DIR "/scripts/nginx/glint-lens-server.conf");
        for (const auto &[from, to] : std::vector<std::pair<std::string, std::string>>{
                 {"{{listen}}", "127.0.0.1:" + std::to_string(port)},
                 {"{{data_dir}}", dataDir},
                 {"{{runtime}}", runtime},
                 {"{{upstreams}}", servers},
                 {"{{workers}}", "1"}})
            for (size_t at = config.find(from); at != std::string::npos;
                 at = config.find(from, at + to.size()))
                config.replace(at, from.size(), to);
        writeFile(runtime + "/nginx.conf", config);
        fs::copy_file(GLINT_SOURCE_DIR "/scripts/nginx/glint-proxy.conf", runtime + "/glint-proxy.conf");
        if (geteuid() == 0)
            ::chown(runtime.c_str(), kNobody, kNobody);
        pid = fork();
        if (pid == 0) {
            if (geteuid() == 0 &&
                (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
                _exit(126);
            execlp("nginx", "nginx", "-p", runtime.c_str(), "-c", (runtime + "/nginx.conf").c_str(), "-e",
                   (runtime + "/error.log").c_str(), "-g", "daemon off;", static_cast<char *>(nullptr));
            _exit(127);
        }
        // Accepting connections within five seconds, or ended.
        for (int i = 0; i < 100 && !RawClient(port).connected() && waitpid(pid, nullptr, WNOHANG) != pid; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ~Nginx()
    {
        kill(pid, SIGQUIT);
        waitpid(pid, nullptr, 0);
    }
    std::string errors() const { return readFile(runtime + "/error.log"); }
};

} // namespace

TEST(ServerProgram, RestartKeepsCatalogueArchivesAndRecords)
{
    TempDir dir;
    writeLens(dir / "bundled", {"sun", "Sun", "Sky", "", 1});
    writeLens(dir / "bundled", {"moon", "Moon", "Sky", "lens_hint_open_your_mouth", 1});
    const std::vector<std::string> common = {"--data-dir",        dir / "data",   "--key",
                                             makeKey(dir.path()), "--rate-limit", "0"};
    std::string archive;
    {
        auto args = common;
        args.insert(args.end(), {"--bundled-lenses", dir / "bundled"});
        ServerProcess first(args);
        ASSERT_TRUE(first.started()) << first.output();
        EXPECT_EQ(lensIds(getJson(first.port(), "/vc/v1/explorer/scheduled")).size(), 2u);
        getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        ASSERT_EQ(request(first.port(), "/vc/v1/reporting/lens",
                          R"({"lens_id":"sun","reason_id":"r","context":"c"})")
                      ->status,
                  200);
        archive = request(first.port(), "/vc/v1/archives/moon.zip")->body;
        ASSERT_FALSE(archive.empty());
        EXPECT_EQ(first.stop(), 0);
    }
    fs::remove_all(dir / "bundled");
    {
        ServerProcess second(common);
        ASSERT_TRUE(second.started()) << second.output();
        EXPECT_EQ(lensIds(getJson(second.port(), "/vc/v1/explorer/scheduled")).size(), 2u);
        EXPECT_EQ(lensIds(getJson(second.port(), "/vc/v1/explorer/top?offset=0&limit=1")), Ids{"moon"});
        EXPECT_EQ(request(second.port(), "/vc/v1/archives/moon.zip")->body, archive);
        const json unlock = getJson(second.port(), "/vc/v1/explorer/unlock?uid=moon");
        // Links follow the new port.
        EXPECT_EQ(unlock["lens_url"], second.url() + "/vc/v1/archives/moon.zip");
    }
    SQLite::Database db(dir / "data/lenses.db");
    EXPECT_EQ(db.execAndGet("SELECT COUNT(*) FROM reports").getInt(), 1);
    EXPECT_EQ(db.execAndGet("SELECT popularity FROM lenses WHERE id = 'moon'").getInt(), 3);
}

TEST(ServerProgram, CatalogueIsEditedWhileTheServerRuns)
{
    TempDir dir;
    writeLens(dir / "lenses", {"a", "Alpha", "Sky", "", 1});
    writeLens(dir / "lenses", {"b", "Beta", "Sky", "", 1});
    const std::string options = " --data-dir " + (dir / "data") + " --key " + makeKey(dir.path()) + " ";
    ASSERT_EQ(runCommand(kServer + " import" + options + (dir / "lenses/a") + " " + (dir / "lenses/b")), 0);
    ServerProcess server({"--data-dir", dir / "data", "--rate-limit", "0"});
    ASSERT_TRUE(server.started()) << server.output();
    auto featured = [&] { return lensIds(getJson(server.port(), "/vc/v1/explorer/scheduled")); };
    EXPECT_TRUE(featured().empty());

    // A lens imported while the server runs shows up within a few seconds.
    writeLens(dir / "lenses", {"c", "Gamma", "Sky", "", 1});
    ASSERT_EQ(runCommand(kServer + " import" + options + "--featured " + (dir / "lenses/c")), 0);
    EXPECT_TRUE(eventually([&] { return featured() == Ids{"c"}; }));

    // Removing a lens: gone from lists, lookups mark it invalid, files go.
    EXPECT_EQ(runCommand(kServer + " remove" + options + "c"), 0);
    EXPECT_TRUE(featured().empty());
    EXPECT_TRUE(eventually([&] {
        const auto lookup = request(server.port(), "/vc/v1/explorer/lenses", R"({"lenses":["a","c"]})");
        return lookup && json::parse(lookup->body)["invalid_ids"] == json{"c"};
    }));
    EXPECT_EQ(request(server.port(), "/vc/v1/explorer/unlock?uid=c")->status, 404);
    EXPECT_EQ(request(server.port(), "/vc/v1/archives/c.zip")->status, 404);
}

TEST(FrontServer, NginxServesTheCatalogueAndArchivesFromTwoServerProcesses)
{
    TempDir dir;
    // nobody must read the shared data folder through the temporary one.
    fs::permissions(dir.path(), fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    writeLens(dir / "bundled", {"sun", "Sun", "Sky", "", 2});
    writeLens(dir / "bundled", {"moon", "Moon", "Sky", "", 3});
    const std::string key = makeKey(dir.path());
    const int front = freePort();
    const std::vector<std::string> common = {"--data-dir",      dir / "data",
                                             "--key",           key,
                                             "--public-url",    "http://127.0.0.1:" + std::to_string(front),
                                             "--trusted-proxy", "127.0.0.1",
                                             "--rate-by",       "address"};
    auto first = common;
    first.insert(first.end(), {"--bundled-lenses", dir / "bundled"});
    ServerProcess one(first); // imports the bundled lenses before it listens
    auto second = common;
    second.push_back("--no-bundled-import");
    ServerProcess two(second);
    ASSERT_TRUE(one.started() && two.started()) << one.output() << two.output();

    Nginx nginx(dir / "nginx", front, dir / "data", {one.port(), two.port()});

    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(lensIds(getJson(front, "/vc/v1/explorer/scheduled")).size(), 2u) << nginx.errors();
    // Both processes answered: nginx takes turns.
    EXPECT_NE(one.output().find("/vc/v1/explorer/scheduled"), std::string::npos);
    EXPECT_NE(two.output().find("/vc/v1/explorer/scheduled"), std::string::npos);

    // The archive the catalogue names comes from nginx, not a server process.
    const std::string path = "/vc/v1/archives/moon.zip";
    ASSERT_EQ(getJson(front, "/vc/v1/explorer/unlock?uid=moon")["lens_url"],
              "http://127.0.0.1:" + std::to_string(front) + path);
    const auto archive = request(front, path);
    ASSERT_TRUE(archive);
    EXPECT_EQ(archive->status, 200) << nginx.errors();
    EXPECT_TRUE(archive->body == readFile(dir / "data/archives/moon.zip"));
    EXPECT_EQ(one.output().find("/vc/v1/archives/"), std::string::npos);
    EXPECT_EQ(two.output().find("/vc/v1/archives/"), std::string::npos);

    // nginx's own limits answer in the server's JSON form.
    std::string ranges = "bytes=0-0";
    for (int i = 0; i < 500; ++i)
        ranges += ",0-0";
    const auto many = httplib::Client("127.0.0.1", front).Get(path.c_str(), {{"Range", ranges}});
    const auto large = request(front, "/vc/v1/explorer/search", std::string(100000, ' '));
    const auto outside = request(front, "/vc/v1/archives/../lenses.db");
    ASSERT_TRUE(many && large && outside);
    EXPECT_LE(many->body.size(), archive->body.size());
    EXPECT_EQ(json::parse(large->body, nullptr, false).value("status", 0), 413);
    EXPECT_EQ(outside->status / 100, 4);
}
