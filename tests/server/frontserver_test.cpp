// The scaled-out deployment: nginx with the shipped configuration, started
// as an unprivileged process on loopback, in front of two server processes
// sharing one data folder.
#include "rawclient.h"
#include "serverprocess.h"
#include "testlens.h"

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

namespace {

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

    httplib::Client client("127.0.0.1", front);
    client.set_default_headers({{"X-Installation-Id", "front-test"}});
    for (int i = 0; i < 6; ++i) {
        const auto res = client.Get("/vc/v1/explorer/scheduled");
        ASSERT_TRUE(res && res->status == 200) << nginx.errors();
        ASSERT_EQ(json::parse(res->body)["lenses"].size(), 2u);
    }
    // Both processes answered: nginx takes turns.
    EXPECT_NE(one.output().find("/vc/v1/explorer/scheduled"), std::string::npos);
    EXPECT_NE(two.output().find("/vc/v1/explorer/scheduled"), std::string::npos);

    // The archive the catalogue names comes from nginx, not a server process.
    const auto unlock = client.Get("/vc/v1/explorer/unlock?uid=moon");
    ASSERT_TRUE(unlock && unlock->status == 200);
    const std::string url = json::parse(unlock->body)["lens_url"];
    const std::string prefix = "http://127.0.0.1:" + std::to_string(front);
    ASSERT_EQ(url.rfind(prefix, 0), 0u) << url;
    const auto archive = client.Get(url.substr(prefix.size()).c_str());
    ASSERT_TRUE(archive);
    EXPECT_EQ(archive->status, 200) << nginx.errors();
    EXPECT_TRUE(archive->body == readFile(dir / "data/archives/moon.zip"));
    EXPECT_EQ(archive->get_header_value("Content-Type"), "application/zip");
    EXPECT_EQ(one.output().find("/vc/v1/archives/"), std::string::npos);
    EXPECT_EQ(two.output().find("/vc/v1/archives/"), std::string::npos);

    // nginx's own limits answer in the server's JSON form.
    std::string ranges = "bytes=0-0";
    for (int i = 0; i < 500; ++i)
        ranges += ",0-0";
    const auto many = client.Get(url.substr(prefix.size()).c_str(), {{"Range", ranges}});
    const auto large = client.Post("/vc/v1/explorer/search", std::string(100000, ' '), "application/json");
    const auto outside = client.Get("/vc/v1/archives/../lenses.db");
    ASSERT_TRUE(many && large && outside);
    EXPECT_LE(many->body.size(), archive->body.size());
    EXPECT_EQ(large->status, 413);
    EXPECT_EQ(json::parse(large->body, nullptr, false).value("error", ""), "body_too_large");
    EXPECT_EQ(outside->status / 100, 4);
}
