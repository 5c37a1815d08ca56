// The server and packer programs as a user runs them.
#include "lenssigner.h"
#include "serverprocess.h"
#include "testlens.h"

#include <SQLiteCpp/Database.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace fs = std::filesystem;
using namespace glint::server;
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

Ids lensIds(int port, const std::string &path)
{
    Ids ids;
    for (const auto &lens : getJson(port, path).value("lenses", json::array()))
        ids.push_back(lens["unlockable_id"]);
    return ids;
}

// Polls for up to 15 s: the server notices catalogue changes by itself.
bool eventually(const std::function<bool()> &condition)
{
    for (int i = 0; i < 150 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return condition();
}

} // namespace

TEST(ServerProgram, RestartKeepsCatalogueArchivesAndRecords)
{
    for (const auto &[options, status] :
         std::vector<std::pair<std::string, int>>{{"--help >/dev/null", 0},
                                                  {"--port 70000", 2},
                                                  {"--colour blue", 2},
                                                  {"--config /nonexistent.json", 2}})
        EXPECT_EQ(runCommand(kServer + " " + options + " 2>&1"), status) << options;

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
        EXPECT_EQ(lensIds(first.port(), "/vc/v1/explorer/scheduled").size(), 2u);
        getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        ASSERT_EQ(request(first.port(), "/vc/v1/reporting/lens",
                          R"({"lens_id":"sun","reason_id":"r","context":"c"})")
                      ->status,
                  200);
        archive = request(first.port(), "/vc/v1/archives/moon.zip")->body;
        ASSERT_FALSE(archive.empty());
        EXPECT_EQ(first.stop(), 0);
        // One log line per request.
        EXPECT_NE(first.output().find("\"GET /vc/v1/archives/moon.zip\" 200"), std::string::npos)
            << first.output();
    }
    fs::remove_all(dir / "bundled");
    {
        ServerProcess second(common);
        ASSERT_TRUE(second.started()) << second.output();
        EXPECT_EQ(second.output().find("Imported"), std::string::npos);
        EXPECT_EQ(lensIds(second.port(), "/vc/v1/explorer/scheduled").size(), 2u);
        EXPECT_EQ(lensIds(second.port(), "/vc/v1/explorer/top?offset=0&limit=1"), Ids{"moon"});
        EXPECT_EQ(request(second.port(), "/vc/v1/archives/moon.zip")->body, archive);
        const json unlock = getJson(second.port(), "/vc/v1/explorer/unlock?uid=moon");
        EXPECT_EQ(unlock["hint_id"], "lens_hint_open_your_mouth");
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
    auto featured = [&] { return lensIds(server.port(), "/vc/v1/explorer/scheduled"); };
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
    for (const auto &[what, status] :
         std::vector<std::pair<std::string, int>>{{"remove" + options + "c", 1},
                                                  {"feature" + options + "c", 1},
                                                  {"feature" + options + "--from soon a", 2}})
        EXPECT_EQ(runCommand(kServer + " " + what + " 2>&1"), status) << what;
}

TEST(ServerProgram, LensesAreSignedAgainWhenTheKeyChanges)
{
    TempDir dir;
    const std::string lens = writeLens(dir / "lenses", {"sun", "Sun", "Sky", "", 1});
    const std::string oldKey = makeKey(dir / "old");
    const std::string newKey = makeKey(dir / "new");
    ASSERT_EQ(runCommand(kServer + " import --data-dir " + (dir / "data") + " --key " + oldKey + " " + lens),
              0);
    ServerProcess server({"--data-dir", dir / "data", "--key", newKey, "--rate-limit", "0"});
    ASSERT_TRUE(server.started()) << server.output();
    EXPECT_NE(server.output().find("Signed 1 lenses again"), std::string::npos) << server.output();
    const std::string signature = getJson(server.port(), "/vc/v1/explorer/unlock?uid=sun")["signature"];
    const std::string checksum = LensSigner::directoryChecksum(lens);
    EXPECT_TRUE(LensSigner::verify(checksum, "sun", signature, LensSigner(newKey).publicKeyBase64()));
    EXPECT_FALSE(LensSigner::verify(checksum, "sun", signature, LensSigner(oldKey).publicKeyBase64()));
}
