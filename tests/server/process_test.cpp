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

namespace {

const std::string kServer = GLINT_TEST_SERVER_BIN;
const std::string kPack = GLINT_TEST_PACK_BIN; // empty when the packer is not built

json getJson(int port, const std::string &path)
{
    httplib::Client client("127.0.0.1", port);
    client.set_default_headers({{"X-Installation-Id", "process-test"}});
    const auto res = client.Get(path.c_str());
    if (!res || res->status != 200) {
        ADD_FAILURE() << path << ": " << (res ? res->body : "no answer");
        return json::object();
    }
    return json::parse(res->body);
}

std::string firstId(const json &answer)
{
    return answer.contains("lenses") && !answer["lenses"].empty() ? answer["lenses"][0]["unlockable_id"] : "";
}

} // namespace

TEST(ServerProgram, HelpSucceedsAndBadOptionsFail)
{
    ASSERT_EQ(runCommand(kServer + " --help >/dev/null"), 0);
    EXPECT_EQ(runCommand(kServer + " --port 70000 2>&1"), 2);
    EXPECT_EQ(runCommand(kServer + " --colour blue 2>&1"), 2);
    EXPECT_EQ(runCommand(kServer + " --config /nonexistent.json 2>&1"), 2);
}

TEST(ServerProgram, RestartKeepsCatalogueArchivesAndRecords)
{
    TempDir dir;
    writeLens(dir / "bundled", {"sun", "Sun", "Sky", "", 1});
    writeLens(dir / "bundled", {"moon", "Moon", "Sky", "lens_hint_open_your_mouth", 1});
    const std::string key = makeKey(dir.path());
    const std::vector<std::string> common = {"--data-dir", dir / "data", "--key", key, "--rate-limit", "0"};

    std::string archive;
    {
        auto args = common;
        args.insert(args.end(), {"--bundled-lenses", dir / "bundled"});
        ServerProcess first(args);
        ASSERT_TRUE(first.started()) << first.output();
        EXPECT_EQ(getJson(first.port(), "/vc/v1/explorer/scheduled")["lenses"].size(), 2u);
        getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        const json unlock = getJson(first.port(), "/vc/v1/explorer/unlock?uid=moon");
        EXPECT_EQ(firstId(getJson(first.port(), "/vc/v1/explorer/top?offset=0&limit=1")), "moon");
        httplib::Client client("127.0.0.1", first.port());
        client.set_default_headers({{"X-Installation-Id", "process-test"}});
        ASSERT_EQ(client
                      .Post("/vc/v1/reporting/lens", R"({"lens_id":"sun","reason_id":"r","context":"c"})",
                            "application/json")
                      ->status,
                  200);
        archive = httplib::Client("127.0.0.1", first.port()).Get("/vc/v1/archives/moon.zip")->body;
        ASSERT_FALSE(archive.empty());
        EXPECT_EQ(first.stop(), 0);
        // One log line per request.
        const std::string log = first.output();
        EXPECT_NE(log.find("\"GET /vc/v1/explorer/unlock\" 200"), std::string::npos) << log;
        EXPECT_NE(log.find("\"POST /vc/v1/reporting/lens\" 200"), std::string::npos) << log;
        EXPECT_NE(log.find("\"GET /vc/v1/archives/moon.zip\" 200"), std::string::npos) << log;
    }
    fs::remove_all(dir / "bundled");
    {
        ServerProcess second(common);
        ASSERT_TRUE(second.started()) << second.output();
        EXPECT_EQ(second.output().find("Imported"), std::string::npos);
        EXPECT_EQ(getJson(second.port(), "/vc/v1/explorer/scheduled")["lenses"].size(), 2u);
        EXPECT_EQ(firstId(getJson(second.port(), "/vc/v1/explorer/top?offset=0&limit=1")), "moon");
        EXPECT_EQ(httplib::Client("127.0.0.1", second.port()).Get("/vc/v1/archives/moon.zip")->body, archive);
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
                                        {"no-bundled-import", true},
                                        {"public-url", "http://lenses.example.test:1234"},
                                        {"rate-limit", 0}}
                                       .dump());
    writeLens(dir / "lenses", {"sun", "Sun", "Sky", "", 1});
    const std::string key = makeKey(dir.path());
    ASSERT_EQ(runCommand(kServer + " import --data-dir " + (dir / "data") + " --key " + key + " --featured " +
                         (dir / "lenses/sun") + " 2>&1"),
              0);
    ServerProcess server({"--config", dir / "server.json", "--update-notes", "from the command line",
                          "--data-dir", dir / "data", "--key", key});
    ASSERT_TRUE(server.started()) << server.output();
    const json latest = getJson(server.port(), "/vc/v1/update/latest?platform=windows");
    EXPECT_EQ(latest["version"], "9.9.9.9");
    EXPECT_EQ(latest["notes"], "from the command line");
    const json featured = getJson(server.port(), "/vc/v1/explorer/scheduled");
    EXPECT_EQ(firstId(featured), "sun");
    EXPECT_EQ(featured["lenses"][0]["icon_url"], "http://lenses.example.test:1234/vc/v1/media/sun/icon.png");
}

TEST(ServerProgram, CatalogueIsEditedWhileTheServerRuns)
{
    TempDir dir;
    writeLens(dir / "lenses", {"a", "Alpha", "Sky", "", 1});
    writeLens(dir / "lenses", {"b", "Beta", "Sky", "", 1});
    const std::string options = " --data-dir " + (dir / "data") + " --key " + makeKey(dir.path());
    ASSERT_EQ(runCommand(kServer + " import" + options + " " + (dir / "lenses/a") + " " + (dir / "lenses/b")),
              0);
    ServerProcess server({"--data-dir", dir / "data", "--rate-limit", "0"});
    ASSERT_TRUE(server.started()) << server.output();
    auto featured = [&] {
        std::vector<std::string> ids;
        const json answer = getJson(server.port(), "/vc/v1/explorer/scheduled");
        for (const auto &lens : answer["lenses"])
            ids.push_back(lens["unlockable_id"]);
        return ids;
    };
    EXPECT_TRUE(featured().empty());

    EXPECT_EQ(runCommand(kServer + " feature" + options + " a"), 0);
    EXPECT_EQ(runCommand(kServer + " feature" + options + " --position 0 b"), 0);
    EXPECT_EQ(featured(), (std::vector<std::string>{"b", "a"}));
    const std::string future = std::to_string(time(nullptr) + 3600);
    EXPECT_EQ(runCommand(kServer + " feature" + options + " --from " + future + " a"), 0);
    EXPECT_EQ(featured(), std::vector<std::string>{"b"});
    EXPECT_EQ(runCommand(kServer + " unfeature" + options + " b"), 0);
    EXPECT_TRUE(featured().empty());

    // A lens imported while the server runs shows up within a few seconds.
    writeLens(dir / "lenses", {"c", "Gamma", "Sky", "", 1});
    ASSERT_EQ(runCommand(kServer + " import" + options + " --featured " + (dir / "lenses/c")), 0);
    for (int i = 0; i < 150 && featured().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(featured(), std::vector<std::string>{"c"});

    // Removing a lens: gone from lists, lookups mark it invalid, files go.
    EXPECT_EQ(runCommand(kServer + " remove" + options + " c"), 0);
    EXPECT_TRUE(featured().empty());
    httplib::Client client("127.0.0.1", server.port());
    client.set_default_headers({{"X-Installation-Id", "process-test"}});
    json invalid;
    for (int i = 0; i < 150 && invalid != json{"c"}; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const auto lookup =
            client.Post("/vc/v1/explorer/lenses", R"({"lenses":["a","c"]})", "application/json");
        ASSERT_TRUE(lookup);
        invalid = json::parse(lookup->body)["invalid_ids"];
    }
    EXPECT_EQ(invalid, json{"c"});
    EXPECT_EQ(client.Get("/vc/v1/explorer/unlock?uid=c")->status, 404);
    EXPECT_EQ(client.Get("/vc/v1/archives/c.zip")->status, 404);
    EXPECT_EQ(runCommand(kServer + " remove" + options + " c 2>&1"), 1);

    EXPECT_EQ(runCommand(kServer + " feature" + options + " no-such-lens 2>&1"), 1);
    EXPECT_EQ(runCommand(kServer + " feature" + options + " --from soon a 2>&1"), 2);
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
    std::string publicKey;
    ASSERT_EQ(runCommand(kPack + " keygen " + (dir / "key.pem"), &publicKey), 0);
    publicKey.pop_back();
    EXPECT_EQ(publicKey.size(), 160u);
    std::string again;
    runCommand(kPack + " pubkey --key " + (dir / "key.pem"), &again);
    EXPECT_EQ(again, publicKey + "\n");

    const std::string lens = writeLens(dir.path(), {"shades", "Shades", "Glint", "", 2});
    std::string output;
    ASSERT_EQ(runCommand(kPack + " pack " + lens + " " + (dir / "shades.zip") + " --key " + (dir / "key.pem"),
                         &output),
              0);
    const json packed = json::parse(output);
    EXPECT_EQ(packed["id"], "shades");
    EXPECT_EQ(packed["checksum"], LensSigner::directoryChecksum(lens));
    EXPECT_TRUE(fs::file_size(dir / "shades.zip") > 0);

    const std::string verify = kPack + " verify " + lens + " ";
    const std::string signature = packed["signature"];
    EXPECT_EQ(runCommand(verify + "shades " + signature + " --public-key " + publicKey), 0);
    EXPECT_EQ(runCommand(verify + "other " + signature + " --public-key " + publicKey), 1);
    writeFile(lens + "/shaders/effect.frag", "changed");
    EXPECT_EQ(runCommand(verify + "shades " + signature + " --public-key " + publicKey), 1);

    EXPECT_EQ(
        runCommand(kPack + " pack " + (dir / "missing") + " x.zip --key " + (dir / "key.pem") + " 2>&1"), 1);
    EXPECT_EQ(runCommand(kPack + " frobnicate 2>&1"), 2);

    ASSERT_EQ(runCommand(kPack + " register --data-dir " + (dir / "data") + " --key " + (dir / "key.pem") +
                             " " + lens,
                         &output),
              0);
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
    EXPECT_NE(server.output().find("Imported " + std::to_string(folders) + " bundled lenses"),
              std::string::npos)
        << server.output();
    const json featured = getJson(server.port(), "/vc/v1/explorer/scheduled");
    ASSERT_EQ(featured["lenses"].size(), folders);
    const std::string publicKey = LensSigner(key).publicKeyBase64();
    fs::create_directories(dir / "unpacked");
    for (const auto &lens : featured["lenses"]) {
        const std::string id = lens["unlockable_id"];
        const json unlock = getJson(server.port(), "/vc/v1/explorer/unlock?uid=" + id);
        const auto archive =
            httplib::Client("127.0.0.1", server.port()).Get("/vc/v1/archives/" + id + ".zip");
        ASSERT_TRUE(archive && archive->status == 200) << id;
        writeFile(dir / (id + ".zip"), archive->body);
        ASSERT_EQ(runCommand("unzip -q " + (dir / (id + ".zip")) + " -d " + (dir / ("unpacked/" + id))), 0)
            << id;
        EXPECT_TRUE(LensSigner::verify(LensSigner::directoryChecksum(dir / ("unpacked/" + id)), id,
                                       unlock["signature"], publicKey))
            << id;
    }
}
