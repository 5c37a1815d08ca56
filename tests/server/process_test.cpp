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
const std::string kPack = GLINT_TEST_PACK_BIN; // empty when the packer is not built

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

TEST(ServerProgram, ConfigurationFileIsReadAndTheCommandLineWins)
{
    TempDir dir;
    writeFile(dir / "server.json", json{{"update-version", "9.9.9.9"},
                                        {"update-notes", "from the file"},
                                        {"update-url", "https://example.test/glint-9.9.9.9.exe"},
                                        {"no-bundled-import", true},
                                        {"public-url", "http://lenses.example.test:1234"},
                                        {"rate-limit", 0}}
                                       .dump());
    const std::string lens = writeLens(dir / "lenses", {"sun", "Sun", "Sky", "", 1});
    const std::string key = makeKey(dir.path());
    ASSERT_EQ(runCommand(kServer + " import --data-dir " + (dir / "data") + " --key " + key + " --featured " +
                         lens),
              0);
    ServerProcess server({"--config", dir / "server.json", "--update-notes", "from the command line",
                          "--data-dir", dir / "data", "--key", key});
    ASSERT_TRUE(server.started()) << server.output();
    const json latest = getJson(server.port(), "/vc/v1/update/latest?platform=windows");
    EXPECT_EQ(latest["version"], "9.9.9.9");
    EXPECT_EQ(latest["notes"], "from the command line");
    const json featured = getJson(server.port(), "/vc/v1/explorer/scheduled");
    EXPECT_EQ(featured["lenses"][0]["icon_url"], "http://lenses.example.test:1234/vc/v1/media/sun/icon.png");
    // The download page leads to the configured download.
    const auto page = request(server.port(), "/download");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 302);
    EXPECT_EQ(page->get_header_value("Location"), "https://example.test/glint-9.9.9.9.exe");
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

    EXPECT_EQ(runCommand(kServer + " feature" + options + "a"), 0);
    EXPECT_EQ(runCommand(kServer + " feature" + options + "--position 0 b"), 0);
    EXPECT_EQ(featured(), (Ids{"b", "a"}));
    EXPECT_EQ(
        runCommand(kServer + " feature" + options + "--from " + std::to_string(time(nullptr) + 3600) + " a"),
        0);
    EXPECT_EQ(featured(), Ids{"b"});
    EXPECT_EQ(runCommand(kServer + " unfeature" + options + "b"), 0);
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

TEST(PackProgram, KeysPackingVerifyingAndRegistering)
{
    if (kPack.empty())
        GTEST_SKIP() << "glint-lens-pack is not part of this build";
    TempDir dir;
    const std::string key = " --key " + (dir / "key.pem");
    std::string publicKey, again, output;
    ASSERT_EQ(runCommand(kPack + " keygen " + (dir / "key.pem"), &publicKey), 0);
    publicKey.pop_back();
    EXPECT_EQ(publicKey.size(), 160u);
    runCommand(kPack + " pubkey" + key, &again);
    EXPECT_EQ(again, publicKey + "\n");

    const std::string lens = writeLens(dir.path(), {"shades", "Shades", "Glint", "", 2});
    ASSERT_EQ(runCommand(kPack + " pack " + lens + " " + (dir / "shades.zip") + key, &output), 0);
    const json packed = json::parse(output);
    EXPECT_EQ(packed["id"], "shades");
    EXPECT_EQ(packed["checksum"], LensSigner::directoryChecksum(lens));
    EXPECT_TRUE(fs::file_size(dir / "shades.zip") > 0);

    const std::string verify = kPack + " verify " + lens + " ";
    const std::string signed_ = " " + packed["signature"].get<std::string>() + " --public-key " + publicKey;
    EXPECT_EQ(runCommand(verify + "shades" + signed_), 0);
    EXPECT_EQ(runCommand(verify + "other" + signed_), 1);
    writeFile(lens + "/shaders/effect.frag", "changed");
    EXPECT_EQ(runCommand(verify + "shades" + signed_), 1);
    EXPECT_EQ(runCommand(kPack + " pack " + (dir / "missing") + " x.zip" + key + " 2>&1"), 1);
    EXPECT_EQ(runCommand(kPack + " frobnicate 2>&1"), 2);

    ASSERT_EQ(runCommand(kPack + " register --data-dir " + (dir / "data") + key + " " + lens, &output), 0);
    SQLite::Database db(dir / "data/lenses.db");
    EXPECT_EQ(db.execAndGet("SELECT checksum FROM lenses WHERE id = 'shades'").getString(),
              LensSigner::directoryChecksum(lens));
    EXPECT_TRUE(fs::exists(dir / "data/archives/shades.zip"));
    EXPECT_TRUE(fs::exists(dir / "data/media/shades/glintcode.png"));
}

TEST(ServerProgram, BundledSampleLensesImportAndVerify)
{
    const std::string bundled = GLINT_SERVER_DEFAULT_BUNDLED;
    size_t folders = 0;
    std::error_code ec;
    for (fs::directory_iterator it(bundled, ec), end; !ec && it != end; it.increment(ec))
        folders += fs::exists(it->path() / "lens.json") ? 1 : 0;
    if (folders == 0)
        GTEST_SKIP() << "no bundled lenses in " << bundled;

    TempDir dir;
    const std::string key = makeKey(dir.path());
    ServerProcess server({"--data-dir", dir / "data", "--key", key, "--rate-limit", "0"});
    ASSERT_TRUE(server.started()) << server.output();
    const Ids featured = lensIds(server.port(), "/vc/v1/explorer/scheduled");
    ASSERT_EQ(featured.size(), folders);
    for (const auto &id : featured) {
        const json unlock = getJson(server.port(), "/vc/v1/explorer/unlock?uid=" + id);
        const auto archive = request(server.port(), "/vc/v1/archives/" + id + ".zip");
        ASSERT_TRUE(archive && archive->status == 200) << id;
        writeFile(dir / (id + ".zip"), archive->body);
        ASSERT_EQ(runCommand("unzip -q " + (dir / (id + ".zip")) + " -d " + (dir / ("unpacked/" + id))), 0)
            << id;
        EXPECT_TRUE(LensSigner::verify(LensSigner::directoryChecksum(dir / ("unpacked/" + id)), id,
                                       unlock["signature"], LensSigner(key).publicKeyBase64()))
            << id;
    }
}
