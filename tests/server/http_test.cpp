// Every endpoint over real HTTP on loopback, against the server library.
#include "lenspacker.h"
#include "lensserver.h"
#include "lenssigner.h"
#include "rawclient.h"
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

const httplib::Headers kInstallation = {{"X-Installation-Id", "test-installation"}};

std::vector<std::string> lensIds(const json &answer)
{
    std::vector<std::string> ids;
    for (const auto &lens : answer.at("lenses"))
        ids.push_back(lens.at("unlockable_id"));
    return ids;
}

// A running server over its own data folder with a few bundled lenses.
struct Backend
{
    TempDir dir;
    std::unique_ptr<LensServer> server;
    std::unique_ptr<httplib::Client> client;

    explicit Backend(std::function<void(ServerConfig &)> adjust = {})
    {
        const std::string bundled = dir / "bundled";
        writeLens(bundled, {"sun", "SUN", "Sky", "", 2});
        writeLens(bundled, {"sunset", "Sunset", "Sky", "", 1});
        writeLens(bundled, {"glasses", "Sunglasses", "Shade", "", 2});
        writeLens(bundled, {"midnight", "Midnight Sun", "Sky", "", 0});
        writeLens(bundled, {"hat", "Top Hat", "Sunny Studio", "", 1});
        writeLens(bundled, {"moon", "Moon", "Sky", "lens_hint_open_your_mouth", 3});
        ServerConfig config;
        config.port = 0;
        config.dataDir = dir / "data";
        config.keyPath = makeKey(dir.path());
        config.bundledLenses = bundled;
        config.rateLimit = 0;
        config.limits.threads = 4;
        if (adjust)
            adjust(config);
        server = std::make_unique<LensServer>(config);
        std::string error;
        if (!server->start(&error))
            ADD_FAILURE() << error;
        client = std::make_unique<httplib::Client>("127.0.0.1", server->port());
        client->set_default_headers(kInstallation);
    }

    json get(const std::string &path, int expectedStatus = 200)
    {
        const auto res = client->Get(path.c_str());
        return check(res, expectedStatus, path);
    }

    json post(const std::string &path, const std::string &body, int expectedStatus = 200,
              const char *type = "application/json")
    {
        const auto res = client->Post(path.c_str(), body, type);
        return check(res, expectedStatus, path + " " + body);
    }

    json check(const httplib::Result &res, int expectedStatus, const std::string &what)
    {
        if (!res) {
            ADD_FAILURE() << what << ": no answer";
            return {};
        }
        EXPECT_EQ(res->status, expectedStatus) << what << " -> " << res->body;
        EXPECT_EQ(res->get_header_value("Content-Type"), "application/json") << what;
        const json body = json::parse(res->body, nullptr, false);
        EXPECT_TRUE(body.is_object()) << what << " -> " << res->body;
        if (expectedStatus >= 400) {
            EXPECT_TRUE(body.contains("error") && body["error"].is_string()) << what << " -> " << res->body;
            EXPECT_EQ(body.value("status", 0), expectedStatus) << what;
        }
        return body;
    }

    std::string download(const std::string &url)
    {
        const std::string prefix = "http://127.0.0.1:" + std::to_string(server->port());
        EXPECT_EQ(url.rfind(prefix, 0), 0u) << url;
        httplib::Client plain("127.0.0.1", server->port());
        const auto res = plain.Get(url.substr(prefix.size()).c_str());
        EXPECT_TRUE(res && res->status == 200) << url;
        return res ? res->body : std::string();
    }

    SQLite::Database database() { return SQLite::Database(dir / "data/lenses.db"); }
};

Backend &shared()
{
    static Backend backend;
    return backend;
}

} // namespace

TEST(Explorer, FeaturedListsTheBundledLensesWithWorkingLinks)
{
    auto &b = shared();
    const json featured = b.get("/vc/v1/explorer/scheduled");
    EXPECT_EQ(lensIds(featured),
              (std::vector<std::string>{"glasses", "hat", "midnight", "moon", "sun", "sunset"}));
    const json moon = featured["lenses"][3];
    EXPECT_EQ(moon["lens_name"], "Moon");
    EXPECT_EQ(moon["user_display_name"], "Sky");
    EXPECT_EQ(moon["image_sequence"]["size"], 3);
    EXPECT_EQ(moon["image_sequence"]["frame_interval_ms"], 80);

    const std::string lensDir = b.dir / "bundled/moon";
    EXPECT_EQ(b.download(moon["icon_url"]), readFile(lensDir + "/icon.png"));
    std::string pattern = moon["image_sequence"]["url_pattern"];
    pattern.replace(pattern.find("%1"), 2, "2");
    EXPECT_EQ(b.download(pattern), readFile(lensDir + "/preview/2.png"));
    const std::string code = b.download(moon["glintcode_url"]);
    EXPECT_EQ(code.substr(0, 8), "\x89PNG\r\n\x1a\n");
}

// Ranking, paging and lookup live in the index (catalogue_test); here the
// endpoints pass their parameters through and refuse bad ones.
TEST(Explorer, TopSearchAndLookupOverHttp)
{
    auto &b = shared();
    EXPECT_EQ(lensIds(b.get("/vc/v1/explorer/top?country=US&offset=4&limit=4")).size(), 2u);
    EXPECT_EQ(lensIds(b.get("/vc/v1/explorer/top")).size(), 6u);
    b.get("/vc/v1/explorer/top?offset=-1&limit=4", 400);
    b.get("/vc/v1/explorer/top?offset=abc", 400);
    b.get("/vc/v1/explorer/top?limit=0", 400);

    const auto found = lensIds(b.post("/vc/v1/explorer/search", R"({"query":"sUN"})"));
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[0], "sun");

    const json answer = b.post("/vc/v1/explorer/lenses", R"({"lenses":["moon","gone","-1","sun"]})");
    EXPECT_EQ(lensIds(answer), (std::vector<std::string>{"moon", "sun"}));
    EXPECT_EQ(answer["invalid_ids"], (json{"gone", "-1"}));
    b.post("/vc/v1/explorer/lenses", R"({"lenses":["moon",7]})", 400);
}

TEST(Explorer, UnlockingMakesALensPopularAndGivesAVerifiableArchive)
{
    auto &b = shared();
    for (int i = 0; i < 3; ++i)
        b.get("/vc/v1/explorer/unlock?uid=sunset");
    const json unlock = b.get("/vc/v1/explorer/unlock?uid=moon");
    EXPECT_EQ(lensIds(b.get("/vc/v1/explorer/top?offset=0&limit=2")),
              (std::vector<std::string>{"sunset", "moon"}));
    EXPECT_EQ(unlock["hint_id"], "lens_hint_open_your_mouth");
    EXPECT_EQ(unlock["lens"]["unlockable_id"], "moon");
    ASSERT_TRUE(unlock["lens_url"].is_string() && unlock["signature"].is_string());

    // The archive is byte for byte what the packer makes of the folder.
    const std::string archive = b.download(unlock["lens_url"]);
    TempDir temp;
    LensSigner signer(b.dir / "key.pem");
    ASSERT_TRUE(LensPacker::pack(b.dir / "bundled/moon", signer, temp / "moon.zip", nullptr, nullptr));
    EXPECT_EQ(archive, readFile(temp / "moon.zip"));

    EXPECT_EQ(b.get("/vc/v1/explorer/unlock?uid=sun")["hint_id"], "");
    b.get("/vc/v1/explorer/unlock?uid=no-such-lens", 404);
    b.get("/vc/v1/explorer/unlock", 400);
    EXPECT_EQ(b.client->Get("/vc/v1/archives/no-such-lens.zip")->status, 404);
    EXPECT_EQ(b.client->Get("/vc/v1/archives/../lenses.db")->status, 400);
    EXPECT_EQ(b.client->Get("/vc/v1/archives/%2e%2e/lenses.db")->status, 400);
    EXPECT_EQ(b.client->Get("/vc/v1/media/moon/../../lenses.db")->status, 400);
    EXPECT_EQ(b.client->Get("/vc/v1/media/moon/other.png")->status, 404);
}

TEST(BadRequests, AreAnsweredWithJsonErrors)
{
    auto &b = shared();
    b.post("/vc/v1/explorer/search", R"({"query":)", 400);
    b.post("/vc/v1/explorer/search", R"(["query"])", 400);
    b.post("/vc/v1/explorer/search", R"({"query":"x"})", 415, "text/plain");
    b.post("/vc/v1/explorer/search", "{\"query\":\"" + std::string(70000, 'a') + "\"}", 413);
    b.post("/vc/v1/reporting/lens", std::string("\xff\xfe{}", 4), 400);
    b.get("/vc/v1/no/such/endpoint", 404);
    b.post("/vc/v1/explorer/top", "{}", 405);

    httplib::Client anonymous("127.0.0.1", b.server->port());
    const auto res = anonymous.Get("/vc/v1/explorer/scheduled");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    EXPECT_EQ(json::parse(res->body)["error"], "missing_installation_id");
    // Files are plain downloads and need no installation id; analytics
    // batches are accepted without one too.
    EXPECT_EQ(anonymous.Get("/vc/v1/media/sun/icon.png")->status, 200);
    EXPECT_EQ(anonymous.Post("/vc/v1/analytics", "batch", "application/octet-stream")->status, 200);
}

TEST(BadRequests, MalformedTargetsAndIdsAreClientErrors)
{
    auto &b = shared();
    // Sent as they stand: the client library must not re-encode them.
    const std::vector<std::pair<std::string, int>> targets = {
        {"/vc/v1/explorer/unlock?uid=%zz", 400},
        {"/vc/v1/explorer/unlock?uid=%F", 400},
        {"/vc/v1/explorer/unlock?uid=%FF%FE", 400},
        {"/vc/v1/explorer/unlock?uid=%C0%AF", 400},    // overlong '/'
        {"/vc/v1/explorer/unlock?uid=%ED%A0%80", 400}, // a surrogate
        {"/vc/v1/explorer/unlock?uid=a%00b", 400},
        {"/vc/v1/explorer/unlock?uid=" + std::string(129, 'a'), 400},
        {"/vc/v1/explorer/unlock?uid=" + std::string(5000, 'a'), 414},
        {"/vc/v1/explorer/unlock?uid=%E2%98%80", 404}, // fine UTF-8, unknown lens
        {"/vc/v1/explorer/top?offset=%31", 200},
        {"/vc/v1/update/latest?platform=%FFwin", 400},
        {"/vc/v1/media/%FF/icon.png", 400},
        {"/vc/v1/archives/" + std::string(300, 'x') + ".zip", 404},
    };
    for (const auto &[target, status] : targets) {
        RawClient request(b.server->port());
        std::string body;
        request.send("GET " + target + " HTTP/1.1\r\nHost: t\r\nX-Installation-Id: raw\r\n\r\n");
        EXPECT_EQ(request.readAnswer(std::chrono::seconds(5), &body), status) << target.substr(0, 80);
        const json answer = json::parse(body, nullptr, false);
        if (status >= 400)
            EXPECT_EQ(answer.value("status", 0), status) << target.substr(0, 80) << " -> " << body;
    }
    // Invalid UTF-8 in a header never reaches an answer undecoded.
    httplib::Client client("127.0.0.1", b.server->port());
    const auto odd = client.Get("/vc/v1/explorer/scheduled", {{"X-Installation-Id", "\xff\xfe"}});
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->status, 400);
}

TEST(BadRequests, WronglyTypedFieldsNeverCauseServerErrors)
{
    auto &b = shared();
    const std::vector<std::pair<std::string, json>> valid = {
        {"/vc/v1/explorer/search", {{"query", "sun"}}},
        {"/vc/v1/explorer/lenses", {{"lenses", {"sun"}}}},
        {"/vc/v1/reporting/lens", {{"lens_id", "sun"}, {"reason_id", "r"}, {"context", "c"}}},
        {"/vc/v1/stream/event",
         {{"token", "t"},
          {"action", "subscription"},
          {"client_ts", 1},
          {"payload", {{"subscribe", json::object()}}},
          {"is_subscribe_enabled", false}}},
    };
    const std::vector<json> replacements = {nullptr,
                                            1,
                                            -1.5,
                                            "text",
                                            json::array(),
                                            json::object(),
                                            true,
                                            std::string(5000, 'x'),
                                            json::array({nullptr})};
    for (const auto &[path, body] : valid) {
        for (const auto &[key, value] : body.items()) {
            for (const auto &replacement : replacements) {
                json changed = body;
                changed[key] = replacement;
                const auto res = b.client->Post(path.c_str(), changed.dump(), "application/json");
                ASSERT_TRUE(res);
                EXPECT_LT(res->status, 500)
                    << path << " " << changed.dump().substr(0, 200) << " -> " << res->body;
                if (res->status >= 400) {
                    EXPECT_TRUE(json::parse(res->body, nullptr, false).contains("error")) << res->body;
                }
            }
            json missing = body;
            missing.erase(key);
            const auto res = b.client->Post(path.c_str(), missing.dump(), "application/json");
            ASSERT_TRUE(res);
            EXPECT_EQ(res->status, 400) << path << " without " << key << " -> " << res->body;
        }
    }
}

TEST(Reporting, StoresReportsOfKnownLenses)
{
    auto &b = shared();
    const json ok = b.post("/vc/v1/reporting/lens",
                           R"({"lens_id":"sun","reason_id":"report_lens_reason_this_lens_is_inappropriate",)"
                           R"("context":"rude words"})");
    ASSERT_TRUE(ok["report_id"].is_number_integer());
    auto db = b.database();
    SQLite::Statement q(db, "SELECT lens_id, reason_id, context, installation_id FROM reports WHERE id = ?");
    q.bind(1, ok["report_id"].get<int64_t>());
    ASSERT_TRUE(q.executeStep());
    EXPECT_EQ(q.getColumn(0).getString(), "sun");
    EXPECT_EQ(q.getColumn(1).getString(), "report_lens_reason_this_lens_is_inappropriate");
    EXPECT_EQ(q.getColumn(2).getString(), "rude words");
    EXPECT_EQ(q.getColumn(3).getString(), "test-installation");

    b.post("/vc/v1/reporting/lens", R"({"lens_id":"gone","reason_id":"r","context":""})", 404);
    b.post("/vc/v1/reporting/lens", R"({"lens_id":"sun","reason_id":"","context":""})", 400);
}

TEST(StreamEvents, ValidEventsAreStoredAndBadOnesRefused)
{
    auto &b = shared();
    const json lensUpdate = {{"token", "access-token"},
                             {"action", "lens_update"},
                             {"client_ts", 1700000000},
                             {"payload", {{"lens", {{"unlockable_id", "sun"}}}}},
                             {"is_subscribe_enabled", true}};
    const json stored = b.post("/vc/v1/stream/event", lensUpdate.dump());
    json subscription = lensUpdate;
    subscription["action"] = "subscription";
    subscription["payload"] = {{"subscribe", {{"subscriber_name", "viewer"}, {"tier", "1000"}}}};
    b.post("/vc/v1/stream/event", subscription.dump());

    auto db = b.database();
    SQLite::Statement q(db, "SELECT action, client_ts, is_subscribe_enabled, payload, token_sha256 "
                            "FROM stream_events WHERE id = ?");
    q.bind(1, stored["event_id"].get<int64_t>());
    ASSERT_TRUE(q.executeStep());
    EXPECT_EQ(q.getColumn(0).getString(), "lens_update");
    EXPECT_EQ(q.getColumn(1).getInt64(), 1700000000);
    EXPECT_EQ(q.getColumn(2).getInt(), 1);
    EXPECT_EQ(json::parse(q.getColumn(3).getString()), lensUpdate["payload"]);
    EXPECT_EQ(q.getColumn(4).getString().size(), 64u); // a digest, never the token

    const std::vector<std::pair<std::function<void(json &)>, int>> bad = {
        {[](json &e) { e["action"] = "dance"; }, 400},
        {[](json &e) { e["client_ts"] = 1.5; }, 400},
        {[](json &e) {
             e["payload"] = {{"subscribe", json::object()}};
         },
         400},
        {[](json &e) { e["token"] = ""; }, 401},
    };
    for (const auto &[change, status] : bad) {
        json event = lensUpdate;
        change(event);
        b.post("/vc/v1/stream/event", event.dump(), status);
    }
}

TEST(Analytics, StoresEachBatchWithItsSize)
{
    auto &b = shared();
    std::string batch(3000, '\0');
    for (size_t i = 0; i < batch.size(); ++i)
        batch[i] = char(i * 7);
    const json answer = b.post("/vc/v1/analytics", batch, 200, "application/octet-stream");
    EXPECT_EQ(answer["size"], 3000);
    auto db = b.database();
    SQLite::Statement q(db, "SELECT size, body FROM analytics_batches WHERE id = ?");
    q.bind(1, answer["batch_id"].get<int64_t>());
    ASSERT_TRUE(q.executeStep());
    EXPECT_EQ(q.getColumn(0).getInt(), 3000);
    const auto body = q.getColumn(1);
    EXPECT_EQ(std::string(static_cast<const char *>(body.getBlob()), size_t(body.getBytes())), batch);

    b.post("/vc/v1/analytics", "", 400, "application/octet-stream");
    b.post("/vc/v1/analytics", "{}", 415, "application/json");
}

TEST(CrashReports, MultipartUploadsAreKept)
{
    auto &b = shared();
    const httplib::MultipartFormDataItems parts = {
        {"log", "line one\nline two\n", "log.txt", "text/plain"},
        {"description", "Debian 12, 2 cores", "description.txt", "text/plain"},
        {"userID", "installation-1", "", ""},
        {"attachment0",
         std::string("\x7f"
                     "ELF\0\1\2",
                     7),
         "crash.dump", "application/octet-stream"},
    };
    const auto res = b.client->Post("/crashglint-camera/crashes/upload", parts);
    ASSERT_TRUE(res);
    ASSERT_EQ(res->status, 201) << res->body;
    const int64_t id = json::parse(res->body)["crash_id"];
    auto db = b.database();
    SQLite::Statement q(db, "SELECT path, parts, size, file FROM crash_reports WHERE id = ?");
    q.bind(1, id);
    ASSERT_TRUE(q.executeStep());
    EXPECT_EQ(q.getColumn(0).getString(), "/crashglint-camera/crashes/upload");
    std::map<std::string, std::string> stored;
    for (const auto &part : json::parse(q.getColumn(1).getString()))
        stored[part["name"]] = readFile(q.getColumn(3).getString() + "/" + part["file"].get<std::string>());
    ASSERT_EQ(stored.size(), 4u);
    for (const auto &part : parts)
        EXPECT_EQ(stored[part.name], part.content) << part.name;
    EXPECT_EQ(q.getColumn(2).getInt64(), 18 + 18 + 14 + 7);

    const auto plain = b.client->Post("/crash/upload", "not multipart", "text/plain");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->status, 400);
}

// What the update check reads from these answers is checked through the
// program's own client (tst_updateservice); here, the download page and the
// platform parameter.
TEST(Update, DownloadPageRedirectsAndPlatformIsChecked)
{
    Backend configured([](ServerConfig &c) {
        c.importBundled = false;
        c.updateVersion = "1.2.0.0";
        c.updateUrl = "https://example.test/glint-1.2.0.0.exe";
    });
    const auto page = configured.client->Get("/download");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 302);
    EXPECT_EQ(page->get_header_value("Location"), "https://example.test/glint-1.2.0.0.exe");
    configured.get("/vc/v1/update/latest", 400);
    configured.get("/vc/v1/update/latest?platform=Win%20dows", 400);
}

TEST(RateLimit, AnswersTooManyRequestsPerInstallation)
{
    Backend limited([](ServerConfig &c) {
        c.importBundled = false;
        c.rateLimit = 0.5;
        c.rateBurst = 3;
        c.maxAnalyticsBytes = 1000;
    });
    for (int i = 0; i < 3; ++i)
        limited.get("/vc/v1/explorer/scheduled");
    const json refused = limited.get("/vc/v1/explorer/scheduled", 429);
    EXPECT_EQ(refused["message"], "Too many requests, please try again later");
    // Other installations have their own allowance.
    limited.client->set_default_headers({{"X-Installation-Id", "someone-else"}});
    limited.get("/vc/v1/explorer/scheduled");
    limited.post("/vc/v1/analytics", std::string(1001, 'x'), 413, "application/octet-stream");
}

// Sends a POST whose body follows its headers a moment later, as a busy
// client may, and returns the status of the answer.
int postInTwoParts(RawClient &client, const std::string &body)
{
    client.send(
        "POST /vc/v1/explorer/search HTTP/1.1\r\nHost: test\r\nX-Installation-Id: test-installation\r\n"
        "Content-Type: application/json\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\n\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    client.send(body);
    return client.readAnswer(std::chrono::seconds(5));
}

TEST(RateLimit, RefusedPostsAreAnsweredBeforeTheirBody)
{
    Backend limited([](ServerConfig &c) {
        c.importBundled = false;
        c.rateLimit = 0.5;
        c.rateBurst = 1;
    });
    RawClient client(limited.server->port());
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(postInTwoParts(client, R"({"query":"sun"})"), 200);
    // A refused request is answered from its headers; its body is never
    // read, so the connection closes rather than take the body for the
    // next request.
    EXPECT_EQ(postInTwoParts(client, R"({"query":"sun"})"), 429);
    EXPECT_TRUE(client.closedWithin(std::chrono::seconds(5)));
}

TEST(Twitch, WithoutASecretTheExchangeIsRefusedClearly)
{
    auto &b = shared();
    const json refused =
        b.post("/vc/v1/stream/authorize",
               R"({"twitch":{"client_id":"abc","code":"c","redirect_uri":"http://localhost:8492/"}})", 503);
    EXPECT_EQ(refused["error"], "twitch_not_configured");
    b.post("/vc/v1/stream/authorize/refresh", R"({"twitch":{"client_id":"abc","refresh_token":"r"}})", 503);
    b.post("/vc/v1/stream/authorize", R"({"code":"c"})", 400);
}

TEST(Twitch, CodesAndRefreshTokensAreForwardedWithTheSecret)
{
    // A stand-in for Twitch's token endpoint on loopback.
    httplib::Server twitch;
    std::vector<httplib::Params> received;
    std::mutex mutex;
    twitch.Post("/oauth2/token", [&](const httplib::Request &req, httplib::Response &res) {
        std::lock_guard guard(mutex);
        received.push_back(req.params);
        const std::string secret = req.get_param_value("client_secret");
        const bool good = secret == "s3cret" && (req.get_param_value("code") == "good-code" ||
                                                 req.get_param_value("refresh_token") == "good-refresh");
        if (!good) {
            res.status = 400;
            res.set_content(R"({"status":400,"message":"Invalid authorization code"})", "application/json");
            return;
        }
        res.set_content(R"({"access_token":"at","refresh_token":"rt","expires_in":14400,)"
                        R"("scope":["channel_read"],"token_type":"bearer"})",
                        "application/json");
    });
    const int port = twitch.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { twitch.listen_after_bind(); });

    {
        Backend b([port](ServerConfig &c) {
            c.importBundled = false;
            c.twitchClientId = "client123";
            c.twitchClientSecret = "s3cret";
            c.twitchTokenUrl = "http://127.0.0.1:" + std::to_string(port) + "/oauth2/token";
        });
        const json tokens = b.post("/vc/v1/stream/authorize",
                                   R"({"twitch":{"client_id":"client123",)"
                                   R"("code":"good-code","redirect_uri":"http://localhost:8492/"}})");
        EXPECT_EQ(tokens["access_token"], "at");
        EXPECT_EQ(tokens["refresh_token"], "rt");
        EXPECT_EQ(tokens["expires_in"], 14400);
        EXPECT_EQ(tokens["expires_at"].get<int64_t>() - tokens["issued_at"].get<int64_t>(), 14400);
        {
            std::lock_guard guard(mutex);
            ASSERT_EQ(received.size(), 1u);
            const auto &form = received[0];
            EXPECT_EQ(form.find("grant_type")->second, "authorization_code");
            EXPECT_EQ(form.find("client_id")->second, "client123");
            EXPECT_EQ(form.find("redirect_uri")->second, "http://localhost:8492/");
        }
        const json refreshed =
            b.post("/vc/v1/stream/authorize/refresh",
                   R"({"twitch":{"client_id":"client123","refresh_token":"good-refresh"}})");
        EXPECT_EQ(refreshed["access_token"], "at");

        const json rejected =
            b.post("/vc/v1/stream/authorize",
                   R"({"twitch":{"client_id":"client123","code":"bad","redirect_uri":"x"}})", 401);
        EXPECT_NE(rejected["message"].get<std::string>().find("Invalid authorization code"),
                  std::string::npos);
        b.post("/vc/v1/stream/authorize",
               R"({"twitch":{"client_id":"other","code":"good-code","redirect_uri":"x"}})", 400);
    }
    twitch.stop();
    thread.join();

    Backend unreachable([port](ServerConfig &c) {
        c.importBundled = false;
        c.twitchClientSecret = "s3cret";
        c.twitchTokenUrl = "http://127.0.0.1:" + std::to_string(port) + "/oauth2/token";
    });
    unreachable.post("/vc/v1/stream/authorize/refresh", R"({"twitch":{"client_id":"c","refresh_token":"r"}})",
                     502);
}

TEST(Twitch, ASlowTwitchHoldsUpNoOtherRequest)
{
    httplib::Server twitch;
    twitch.Post("/oauth2/token", [](const httplib::Request &, httplib::Response &res) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        res.set_content(R"({"access_token":"at","refresh_token":"rt","expires_in":10,"scope":[]})",
                        "application/json");
    });
    const int port = twitch.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { twitch.listen_after_bind(); });
    {
        // One event loop only: a blocking handler on it would stall everyone.
        Backend b([port](ServerConfig &c) {
            c.limits.threads = 1;
            c.twitchClientSecret = "s3cret";
            c.twitchTokenUrl = "http://127.0.0.1:" + std::to_string(port) + "/oauth2/token";
        });
        std::thread slow([&] {
            httplib::Client client("127.0.0.1", b.server->port());
            client.set_default_headers(kInstallation);
            const auto res =
                client.Post("/vc/v1/stream/authorize/refresh",
                            R"({"twitch":{"client_id":"c","refresh_token":"r"}})", "application/json");
            EXPECT_TRUE(res && res->status == 200);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        const auto start = std::chrono::steady_clock::now();
        b.get("/vc/v1/explorer/top?limit=2");
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(700));
        slow.join();
    }
    twitch.stop();
    thread.join();
}
