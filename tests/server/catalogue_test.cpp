// The database schema, the catalogue, the in-memory index and rate limiting.
#include "catalogue.h"
#include "database.h"
#include "lensindex.h"
#include "ratelimiter.h"
#include "testlens.h"

#include <SQLiteCpp/Database.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace glint::server;
using nlohmann::json;

namespace {

LensRecord lens(const std::string &id, const std::string &name, const std::string &author, int64_t popularity)
{
    LensRecord record;
    record.id = id;
    record.name = name;
    record.author = author;
    record.checksum = "C";
    record.signature = "S";
    record.popularity = popularity;
    return record;
}

std::vector<std::string> ids(const std::string &answer)
{
    return lensIds(json::parse(answer));
}

LensIndex makeIndex()
{
    return LensIndex(LensUrls("http://example.test:1/", "/vc/v1", "https://glint.test/unlock/?uid="));
}

} // namespace

TEST(Database, MigratesAnOldFileToTheNewestSchema)
{
    TempDir temp;
    {
        // A file written before the indexes existed.
        SQLite::Database old(temp / "lenses.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        old.exec(
            "CREATE TABLE lenses (id TEXT PRIMARY KEY, name TEXT NOT NULL, author TEXT NOT NULL, "
            "hint_id TEXT NOT NULL DEFAULT '', status TEXT NOT NULL DEFAULT 'Live', checksum TEXT NOT NULL, "
            "signature TEXT NOT NULL, archive_size INTEGER NOT NULL, preview_count INTEGER NOT NULL DEFAULT "
            "0, preview_interval_ms INTEGER NOT NULL DEFAULT 0, external_triggers TEXT NOT NULL DEFAULT "
            "'[]', popularity INTEGER NOT NULL DEFAULT 0, created_at INTEGER NOT NULL, updated_at INTEGER "
            "NOT NULL)");
        old.exec(
            "CREATE TABLE schedule (id INTEGER PRIMARY KEY AUTOINCREMENT, lens_id TEXT NOT NULL, position "
            "INTEGER NOT NULL DEFAULT 0, starts_at INTEGER NOT NULL DEFAULT 0, ends_at INTEGER)");
        old.exec("CREATE TABLE reports (id INTEGER PRIMARY KEY, lens_id TEXT, reason_id TEXT, context TEXT, "
                 "installation_id TEXT, received_at INTEGER)");
        old.exec(
            "INSERT INTO lenses VALUES ('kept', 'Kept', 'A', '', 'Live', 'C', 'S', 1, 0, 0, '[]', 7, 0, 0)");
        old.exec("PRAGMA user_version = 1");
    }
    Database database(temp / "lenses.db");
    EXPECT_EQ(database.schemaVersion(), Database::latestSchemaVersion());
    Catalogue catalogue(database);
    ASSERT_TRUE(catalogue.find("kept"));
    EXPECT_EQ(catalogue.find("kept")->popularity, 7);
}

TEST(Catalogue, ReimportKeepsPopularityAndScheduleFollowsTime)
{
    TempDir temp;
    Database database(temp / "lenses.db");
    Catalogue catalogue(database);
    catalogue.upsert(lens("a", "Alpha", "X", 0));
    catalogue.upsert(lens("b", "Beta", "Y", 0));
    catalogue.addPopularity("a", 5);
    auto changed = lens("a", "Alpha 2", "X", 0);
    changed.externalTriggers = {"trigger1", "trigger2"};
    catalogue.upsert(changed);
    const auto stored = catalogue.find("a");
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->name, "Alpha 2");
    EXPECT_EQ(stored->popularity, 5);
    EXPECT_EQ(stored->externalTriggers, changed.externalTriggers);

    catalogue.schedule("b", 0, 100, 200);
    catalogue.schedule("a", 1, 0, 0);
    EXPECT_EQ(catalogue.featuredAt(50), std::vector<std::string>{"a"});
    EXPECT_EQ(catalogue.featuredAt(150), (std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(catalogue.featuredAt(200), std::vector<std::string>{"a"});
}

TEST(LensIndex, SearchRanksNameMatchesBeforeAuthorMatchesAndFoldsCase)
{
    auto index = makeIndex();
    index.rebuild({lens("tsunami", "Tsunami", "Wave Co", 50), lens("hat", "Top Hat", "Sunny Studio", 90),
                   lens("glasses", "Sunglasses", "Shade", 1), lens("sun", "SUN", "Sky", 0),
                   lens("midnight", "Midnight Sun", "Sky", 3), lens("moon", "Moon", "Sky", 99),
                   lens("sunset", "Sunset", "Sky", 10), lens("author", "Plain", "sun", 0)});
    EXPECT_EQ(ids(index.searchJson("sUn", 100)),
              (std::vector<std::string>{"sun", "sunset", "glasses", "midnight", "tsunami", "author", "hat"}));
    EXPECT_EQ(ids(index.searchJson("sun", 2)), (std::vector<std::string>{"sun", "sunset"}));
    EXPECT_TRUE(ids(index.searchJson("", 100)).empty());
    EXPECT_TRUE(ids(index.searchJson("nothing like it", 100)).empty());

    // Capitals outside ASCII fold too.
    EXPECT_EQ(LensIndex::fold("ÉCLAIR Café ПРИВЕТ Ёж ΣΟΦΙΑ"), "éclair café привет ёж σοφια");
    index.rebuild({lens("e", "Éclair", "Pâtissier", 0), lens("p", "Привет", "Мир", 0)});
    for (const char *query : {"éCLAIR", "ПРИВ", "мир"})
        EXPECT_EQ(ids(index.searchJson(query, 10)).size(), 1u) << query;
}

TEST(LensIndex, TopFollowsPopularityAndPagesWithoutGapsOrRepeats)
{
    auto index = makeIndex();
    std::vector<LensRecord> lenses;
    for (int i = 0; i < 25; ++i)
        lenses.push_back(lens("l" + std::to_string(i), "Lens " + std::to_string(i), "A", i % 5));
    index.rebuild(lenses);
    std::vector<std::string> all;
    for (size_t offset = 0; offset < 30; offset += 7) {
        const auto page = ids(index.topJson(offset, 7));
        EXPECT_LE(page.size(), 7u);
        all.insert(all.end(), page.begin(), page.end());
    }
    ASSERT_EQ(all.size(), 25u);
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 25u);
    EXPECT_EQ(all.front(), "l14"); // popularity 4, first by name among l4, l9, l14, l19, l24
    index.addPopularity("l0", 100);
    EXPECT_EQ(ids(index.topJson(0, 1)), std::vector<std::string>{"l0"});
    EXPECT_TRUE(ids(index.topJson(25, 7)).empty());
}

TEST(RateLimiter, AllowsABurstThenTheSustainedRatePerClient)
{
    RateLimiter limiter(2.0, 3);
    const auto t0 = RateLimiter::Clock::now();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(limiter.allow("a", t0));
    EXPECT_FALSE(limiter.allow("a", t0));
    EXPECT_TRUE(limiter.allow("b", t0)); // other clients are not affected
    EXPECT_TRUE(limiter.allow("a", t0 + std::chrono::milliseconds(500)));
    EXPECT_FALSE(limiter.allow("a", t0 + std::chrono::milliseconds(600)));
    // Idle time refills only up to the burst; a rate of 0 is no limit.
    int allowed = 0;
    while (limiter.allow("a", t0 + std::chrono::seconds(60)))
        ++allowed;
    EXPECT_EQ(allowed, 3);
    RateLimiter unlimited(0, 1);
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(unlimited.allow("a", t0));
}
