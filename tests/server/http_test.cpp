// Every endpoint over real HTTP on loopback, against the server library.
#include "lenspacker.h"
#include "lensserver.h"
#include "lenssigner.h"
#include "rawclient.h"
#include "testlens.h"

#include <SQLiteCpp/Database.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <thread>

using namespace glint::server;
using nlohmann::json;
using Ids = std::vector<std::string>;

namespace {

const httplib::Headers kInstallation = {{"X-Installation-Id", "test-installation"}};

// A running server over its own data folder with a few bundled lenses.
struct Backend
{
    TempDir dir;
    std::unique_ptr<LensServer> server;
    std::unique_ptr<httplib::Client> client;

    explicit Backend(std::function<void(ServerConfig &)> adjust = {})
    {
        const std::string bundled = dir / "bundled";
        for (const TestLens &lens :
             std::vector<TestLens>{{"sun", "SUN", "Sky", "", 2},
                                   {"sunset", "Sunset", "Sky", "", 1},
                                   {"glasses", "Sunglasses", "Shade", "", 2},
                                   {"midnight", "Midnight Sun", "Sky", "", 0},
                                   {"hat", "Top Hat", "Sunny Studio", "", 1},
                                   {"moon", "Moon", "Sky", "lens_hint_open_your_mouth", 3}})
            writeLens(bundled, lens);
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

    json get(const std::string &path, int status = 200)
    {
        return check(client->Get(path.c_str()), status, path);
    }
    json post(const std::string &path, const std::string &body, int status = 200,
              const char *type = "application/json")
    {
        return check(client->Post(path.c_str(), body, type), status, path + " " + body.substr(0, 100));
    }

    // Every answer is a JSON object; errors carry their text and status.
    json check(const httplib::Result &res, int status, const std::string &what)
    {
        if (!res) {
            ADD_FAILURE() << what << ": no answer";
            return {};
        }
        EXPECT_EQ(res->status, status) << what << " -> " << res->body;
        EXPECT_EQ(res->get_header_value("Content-Type"), "application/json") << what;
        const json body = json::parse(res->body, nullptr, false);
        EXPECT_TRUE(body.is_object()) << what << " -> " << res->body;
        if (status >= 400) {
            EXPECT_TRUE(body.value("status", 0) == status && body["error"].is_string()) << what << res->body;
        }
        return body;
    }

    std::string download(const std::string &url)
    {
        const std::string prefix = "http://127.0.0.1:" + std::to_string(server->port());
        EXPECT_EQ(url.rfind(prefix, 0), 0u) << url;
        const auto res = httplib::Client("127.0.0.1", server->port()).Get(url.substr(prefix.size()).c_str());
        EXPECT_TRUE(res && res->status == 200) << url;
        return res ? res->body : std::string();
    }

    // The columns of one stored row, as text.
    std::vector<std::string> row(const std::string &query, int64_t id)
    {
        SQLite::Database db(dir / "data/lenses.db");
        SQLite::Statement statement(db, query);
        statement.bind(1, id);
        std::vector<std::string> columns;
        for (int i = 0; i < statement.getColumnCount() && (i > 0 || statement.executeStep()); ++i)
            columns.push_back(statement.getColumn(i).getString());
        return columns;
    }
};

Backend &shared()
{
    static Backend backend;
    return backend;
}

const char *kRefresh = R"({"twitch":{"client_id":"c","refresh_token":"r"}})";

} // namespace

TEST(Explorer, ListsLookupAndUnlockOverHttp)
{
    auto &b = shared();
    const json featured = b.get("/vc/v1/explorer/scheduled");
    EXPECT_EQ(lensIds(featured), (Ids{"glasses", "hat", "midnight", "moon", "sun", "sunset"}));
    // The links in a record lead to the lens's own files.
    const json moon = featured["lenses"][3];
    EXPECT_EQ(moon["image_sequence"]["size"], 3);
    EXPECT_EQ(moon["image_sequence"]["frame_interval_ms"], 80);
    EXPECT_EQ(b.download(moon["icon_url"]), readFile(b.dir / "bundled/moon/icon.png"));
    std::string pattern = moon["image_sequence"]["url_pattern"];
    pattern.replace(pattern.find("%1"), 2, "2");
    EXPECT_EQ(b.download(pattern), readFile(b.dir / "bundled/moon/preview/2.png"));
    EXPECT_EQ(b.download(moon["glintcode_url"]).substr(0, 8), "\x89PNG\r\n\x1a\n");

    // Ranking, paging and lookup live in the index (catalogue_test); here
    // the endpoints pass their parameters through.
    EXPECT_EQ(lensIds(b.get("/vc/v1/explorer/top?country=US&offset=4&limit=4")).size(), 2u);
    EXPECT_EQ(lensIds(b.post("/vc/v1/explorer/search", R"({"query":"sUN"})")).size(), 5u);
    const json answer = b.post("/vc/v1/explorer/lenses", R"({"lenses":["moon","gone","-1","sun"]})");
    EXPECT_EQ(lensIds(answer), (Ids{"moon", "sun"}));
    EXPECT_EQ(answer["invalid_ids"], (json{"gone", "-1"}));

    for (int i = 0; i < 3; ++i)
        b.get("/vc/v1/explorer/unlock?uid=sunset");
    const json unlock = b.get("/vc/v1/explorer/unlock?uid=moon");
    EXPECT_EQ(lensIds(b.get("/vc/v1/explorer/top?offset=0&limit=2")), (Ids{"sunset", "moon"}));
    EXPECT_EQ(unlock["hint_id"], "lens_hint_open_your_mouth");
    EXPECT_EQ(unlock["lens"]["unlockable_id"], "moon");

    // The archive is byte for byte what the packer makes of the folder.
    TempDir temp;
    LensSigner signer(b.dir / "key.pem");
    ASSERT_TRUE(LensPacker::pack(b.dir / "bundled/moon", signer, temp / "moon.zip", nullptr, nullptr));
    EXPECT_EQ(b.download(unlock["lens_url"]), readFile(temp / "moon.zip"));
    ASSERT_TRUE(unlock["signature"].is_string());
}

TEST(BadRequests, AreAnsweredWithJsonErrors)
{
    auto &b = shared();
    struct Case
    {
        std::string path, body;
        int status;
        const char *type = "application/json";
    };
    const std::vector<Case> posts = {
        {"/vc/v1/explorer/search", R"({"query":)", 400},
        {"/vc/v1/explorer/search", R"(["query"])", 400},
        {"/vc/v1/explorer/search", R"({"query":"x"})", 415, "text/plain"},
        {"/vc/v1/explorer/search", "{\"query\":\"" + std::string(70000, 'a') + "\"}", 413},
        {"/vc/v1/explorer/lenses", R"({"lenses":["moon",7]})", 400},
        {"/vc/v1/reporting/lens", std::string("\xff\xfe{}", 4), 400},
        {"/vc/v1/reporting/lens", R"({"lens_id":"gone","reason_id":"r","context":""})", 404},
        {"/vc/v1/reporting/lens", R"({"lens_id":"sun","reason_id":"","context":""})", 400},
        {"/vc/v1/explorer/top", "{}", 405},
        {"/vc/v1/analytics", "", 400, "application/octet-stream"},
        {"/vc/v1/analytics", "{}", 415},
        {"/vc/v1/stream/authorize", R"({"code":"c"})", 400},
        // Without a client secret the server cannot exchange Twitch codes.
        {"/vc/v1/stream/authorize/refresh", kRefresh, 503},
    };
    for (const auto &c : posts)
        b.post(c.path, c.body, c.status, c.type);

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
        {"/vc/v1/explorer/unlock", 400},
        {"/vc/v1/explorer/top?offset=%31", 200},
        {"/vc/v1/explorer/top?offset=-1&limit=4", 400},
        {"/vc/v1/explorer/top?limit=0", 400},
        {"/vc/v1/update/latest", 400},
        {"/vc/v1/update/latest?platform=Win%20dows", 400},
        {"/vc/v1/no/such/endpoint", 404},
        {"/vc/v1/archives/no-such-lens.zip", 404},
        {"/vc/v1/archives/../lenses.db", 400},
        {"/vc/v1/archives/%2e%2e/lenses.db", 400},
        {"/vc/v1/media/moon/../../lenses.db", 400},
        {"/vc/v1/media/moon/other.png", 404},
    };
    for (const auto &[target, status] : targets) {
        RawClient request(b.server->port());
        std::string body;
        request.send("GET " + target + " HTTP/1.1\r\nHost: t\r\nX-Installation-Id: raw\r\n\r\n");
        EXPECT_EQ(request.readAnswer(std::chrono::seconds(5), &body), status) << target.substr(0, 80);
        if (status >= 400) {
            EXPECT_EQ(json::parse(body, nullptr, false).value("status", 0), status) << target.substr(0, 80);
        }
    }

    // The API needs an installation id (valid UTF-8); files and analytics
    // batches do not.
    httplib::Client anonymous("127.0.0.1", b.server->port());
    b.check(anonymous.Get("/vc/v1/explorer/scheduled"), 400, "anonymous");
    b.check(anonymous.Get("/vc/v1/explorer/scheduled", {{"X-Installation-Id", "\xff\xfe"}}), 400, "bad id");
    EXPECT_EQ(anonymous.Get("/vc/v1/media/sun/icon.png")->status, 200);
    EXPECT_EQ(anonymous.Post("/vc/v1/analytics", "batch", "application/octet-stream")->status, 200);
}

TEST(BadRequests, WronglyTypedFieldsNeverCauseServerErrors)
{
    auto &b = shared();
    const std::vector<std::pair<std::string, json>> valid = {
        {"/vc/v1/explorer/search", {{"query", "sun"}}},
        {"/vc/v1/explorer/lenses", {{"lenses", {"sun"}}}},
        {"/vc/v1/reporting/lens", {{"lens_id", "sun"}, {"reason_id", "r"}, {"context", "c"}}},
        {"/vc/v1/stream/event", json::parse(R"({"token": "t", "action": "subscription", "client_ts": 1,
                                 "payload": {"subscribe": {}}, "is_subscribe_enabled": false})")},
    };
    json replacements = json::parse(R"([null, 1, -1.5, "text", [], {}, true, [null]])");
    replacements.push_back(std::string(5000, 'x'));
    for (const auto &[path, body] : valid) {
        for (const auto &[key, value] : body.items()) {
            for (const auto &replacement : replacements) {
                json changed = body;
                changed[key] = replacement;
                const auto res = b.client->Post(path.c_str(), changed.dump(), "application/json");
                ASSERT_TRUE(res);
                EXPECT_LT(res->status, 500) << path << " " << changed.dump().substr(0, 200) << res->body;
                EXPECT_TRUE(res->status < 400 || json::parse(res->body, nullptr, false).contains("error"));
            }
            json missing = body;
            missing.erase(key);
            b.post(path, missing.dump(), 400);
        }
    }
}

TEST(Records, ReportsAndStreamEventsAreStored)
{
    auto &b = shared();
    const json report =
        b.post("/vc/v1/reporting/lens", R"({"lens_id":"sun","reason_id":"rude","context":"words"})");
    auto r = b.row("SELECT lens_id || reason_id || context || installation_id FROM reports WHERE id = ?",
                   report["report_id"]);
    EXPECT_EQ(r, std::vector<std::string>{"sunrudewordstest-installation"});

    const json lensUpdate = json::parse(R"({"token": "access-token", "action": "lens_update", "client_ts":
        1700000000, "payload": {"lens": {"unlockable_id": "sun"}}, "is_subscribe_enabled": true})");
    const json stored = b.post("/vc/v1/stream/event", lensUpdate.dump());
    auto e = b.row("SELECT action, client_ts, is_subscribe_enabled, payload, token_sha256 FROM stream_events "
                   "WHERE id = ?",
                   stored["event_id"]);
    ASSERT_EQ(e.size(), 5u);
    EXPECT_EQ(e[0] + " " + e[1] + " " + e[2], "lens_update 1700000000 1");
    EXPECT_EQ(json::parse(e[3]), lensUpdate["payload"]);
    EXPECT_EQ(e[4].size(), 64u); // a digest, never the token
    json subscription = lensUpdate;
    subscription["action"] = "subscription";
    subscription["payload"] = {{"subscribe", {{"subscriber_name", "viewer"}, {"tier", "1000"}}}};
    b.post("/vc/v1/stream/event", subscription.dump());
    for (const auto &[key, value, status] : std::vector<std::tuple<std::string, json, int>>{
             {"action", "dance", 400}, {"client_ts", 1.5, 400}, {"token", "", 401}}) {
        json event = lensUpdate;
        event[key] = value;
        b.post("/vc/v1/stream/event", event.dump(), status);
    }
}

TEST(RateLimit, RefusedBeforeTheBody)
{
    Backend limited([](ServerConfig &c) {
        c.importBundled = false;
        c.rateLimit = 0.5;
        c.rateBurst = 1;
    });
    // A POST whose body follows its headers a moment later, as a busy
    // client may send it. A refused one is answered from its headers and
    // the connection closes rather than take its body for the next request.
    RawClient client(limited.server->port());
    auto postInTwoParts = [&] {
        const std::string body = R"({"query":"sun"})";
        client.send("POST /vc/v1/explorer/search HTTP/1.1\r\nHost: t\r\nX-Installation-Id: two-part\r\n"
                    "Content-Type: application/json\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        client.send(body);
        return client.readAnswer(std::chrono::seconds(5));
    };
    EXPECT_EQ(postInTwoParts(), 200);
    EXPECT_EQ(postInTwoParts(), 429);
    EXPECT_TRUE(client.closedWithin(std::chrono::seconds(5)));
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
            const auto res = client.Post("/vc/v1/stream/authorize/refresh", kRefresh, "application/json");
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
