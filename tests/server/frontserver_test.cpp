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
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

void replaceAll(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

// nginx with the shipped configuration; as root it drops to nobody first.
class Nginx
{
public:
    Nginx(const std::string &runtime, int port, const std::string &dataDir, const std::vector<int> &upstreams)
        : m_runtime(runtime), m_port(port)
    {
        std::string config = readFile(GLINT_SOURCE_DIR "/scripts/nginx/glint-lens-server.conf");
        std::string servers;
        for (const int upstream : upstreams)
            servers += "server 127.0.0.1:" + std::to_string(upstream) + ";\n        ";
        replaceAll(config, "{{listen}}", "127.0.0.1:" + std::to_string(port));
        replaceAll(config, "{{data_dir}}", dataDir);
        replaceAll(config, "{{runtime}}", runtime);
        replaceAll(config, "{{upstreams}}", servers);
        replaceAll(config, "{{workers}}", "1");
        fs::create_directories(runtime);
        writeFile(runtime + "/nginx.conf", config);
        fs::copy_file(GLINT_SOURCE_DIR "/scripts/nginx/glint-proxy.conf", runtime + "/glint-proxy.conf");
        if (geteuid() == 0)
            ::chown(runtime.c_str(), kNobody, kNobody);
        m_pid = fork();
        if (m_pid == 0) {
            if (geteuid() == 0 &&
                (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
                _exit(126);
            const std::string conf = runtime + "/nginx.conf";
            const std::string log = runtime + "/error.log";
            execlp("nginx", "nginx", "-p", runtime.c_str(), "-c", conf.c_str(), "-e", log.c_str(), "-g",
                   "daemon off;", static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~Nginx()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGQUIT);
            waitpid(m_pid, nullptr, 0);
        }
    }

    // Waits until nginx accepts connections, at most five seconds.
    bool ready() const
    {
        for (int i = 0; i < 100; ++i) {
            RawClient probe(m_port);
            if (probe.connected())
                return true;
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    std::string errors() const { return readFile(m_runtime + "/error.log"); }

private:
    std::string m_runtime;
    int m_port;
    pid_t m_pid = -1;
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
    ASSERT_TRUE(nginx.ready()) << nginx.errors();

    httplib::Client client("127.0.0.1", front);
    client.set_default_headers({{"X-Installation-Id", "front-test"}});
    json featured;
    for (int i = 0; i < 6; ++i) {
        const auto res = client.Get("/vc/v1/explorer/scheduled");
        ASSERT_TRUE(res) << nginx.errors();
        ASSERT_EQ(res->status, 200) << res->body << nginx.errors();
        featured = json::parse(res->body);
    }
    ASSERT_EQ(featured["lenses"].size(), 2u);
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
    ASSERT_TRUE(many);
    EXPECT_LE(many->body.size(), archive->body.size());
    const auto large = client.Post("/vc/v1/explorer/search", std::string(100000, ' '), "application/json");
    ASSERT_TRUE(large);
    EXPECT_EQ(large->status, 413);
    EXPECT_EQ(json::parse(large->body, nullptr, false).value("error", ""), "body_too_large");
    const auto missing = client.Get("/vc/v1/archives/../lenses.db");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status / 100, 4);
}
