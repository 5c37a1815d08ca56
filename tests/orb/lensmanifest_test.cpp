#include "testframes.h"

#include <gtest/gtest.h>
#include <orb/lensmanifest.h>

using Orb::LensManifest;

namespace {
std::string loadError(const TestFrames::TempLens &lens)
{
    LensManifest manifest;
    std::string error;
    EXPECT_FALSE(LensManifest::load(lens.folder, manifest, error));
    return error;
}

const char *kHeader = R"("formatVersion": 1, "id": "test", "name": "Test")";
} // namespace

TEST(LensManifest, MissingManifestNamesTheFile)
{
    LensManifest manifest;
    std::string error;
    EXPECT_FALSE(LensManifest::load("/nonexistent/lens", manifest, error));
    EXPECT_EQ(error, "/nonexistent/lens/lens.json: file not found or not readable");
}

TEST(LensManifest, ErrorsCarryFileLineAndReason)
{
    struct Case
    {
        std::string manifest;
        std::string expected; // after "<folder>/lens.json:"
    };
    const std::vector<Case> cases = {
        {std::string("{\n") + kHeader + ",\n\"effects\": [\n  {\"id\": \"a\", \"type\": \"blur\"}\n]}",
         "4: unknown effect type \"blur\" (known: shader, lut, sticker)"},
        {std::string("{\n") + kHeader +
             ",\n\"effects\": [\n {\"id\": \"s\", \"type\": \"sticker\",\n"
             "  \"image\": \"nothere.png\"}]}",
         "5: file \"nothere.png\" not found in the lens folder"},
        {"{\n\"formatVersion\": 2,\n\"id\": \"x\", \"name\": \"X\"}",
         "2: format version 2 is newer than this program supports (1); please update"},
        {"{\n\"formatVersion\": 1,\n\"id\": \"bad id\", \"name\": \"X\"}",
         "3: \"id\" must be 1 to 128 characters of A-Z, a-z, 0-9, '_' and '-'"},
        {"{\"formatVersion\": 1, \"id\": \"x\",\n\"name\": \"\"}", "2: \"name\" must not be empty"},
        {std::string("{") + kHeader + ",\n\"icon\": \"../outside.png\"}",
         "2: \"../outside.png\" must be a path inside the lens folder"},
        {std::string("{") + kHeader + ",\n\"icon\": \"lens.json\"}", "2: \"lens.json\" is not a PNG image"},
        {std::string("{") + kHeader + ",\n\"preview\": {\"frameIntervalMs\": -5}}",
         "2: \"frameIntervalMs\" must be an integer from 1 to 60000"},
        {"{\"formatVersion\": 1,\n\"id\": \"x\"\n\"name\": \"X\"}",
         "3: invalid JSON: expected ',' or '}' in an object"},
        {"{\"formatVersion\": 1, \"id\": \"x\"}", "1: missing \"name\""},
        {std::string("{") + kHeader +
             ",\n\"behaviors\": [{\"on\": \"tap\", \"do\": \"show\",\n \"effect\": \"ghost\"}]}",
         "3: no effect with id \"ghost\""},
        {std::string("{") + kHeader +
             ",\n\"effects\": [{\"id\": \"s\", \"type\": \"sticker\",\n"
             "\"image\": \"asset:spark.png\"}]}",
         "3: asset \"spark.png\" is not listed in \"remoteAssets\""},
        {std::string("{") + kHeader +
             ",\n\"effects\": [{\"id\": \"s\", \"type\": \"shader\",\n"
             "\"shader\": \"../../etc/passwd\"}]}",
         "3: \"../../etc/passwd\" must be a path inside the lens folder"},
        {std::string("{") + kHeader + ",\n\"effects\": [{\"id\": \"a\", \"type\": \"lut\", \"image\": 3}]}",
         "2: \"image\" must be a string"},
    };
    for (const auto &c : cases) {
        TestFrames::TempLens lens(c.manifest);
        EXPECT_EQ(loadError(lens), lens.folder + "/lens.json:" + c.expected) << c.manifest;
    }
}

TEST(LensManifest, DuplicateEffectIdsAreRejected)
{
    TestFrames::TempLens lens(
        std::string("{") + kHeader +
        ",\"effects\": [{\"id\": \"a\", \"type\": \"shader\", \"shader\": \"a.frag\"},\n"
        "{\"id\": \"a\", \"type\": \"shader\", \"shader\": \"a.frag\"}]}");
    lens.write("a.frag", "void main() { fragColor = vec4(1.0); }");
    EXPECT_NE(loadError(lens).find(":2: effect id \"a\" is used twice"), std::string::npos);
}

TEST(LensManifest, JsonStringsAndNumbersParseStrictly)
{
    TestFrames::TempLens lens("{\"formatVersion\": 1.0, \"id\": \"x\", \"name\": \"Caf\\u00e9 \\\"Noir\\\"\","
                              " \"hint\": \"\", \"externalTriggers\": []}");
    LensManifest m;
    std::string error;
    ASSERT_TRUE(LensManifest::load(lens.folder, m, error)) << error;
    EXPECT_EQ(m.name, "Caf\xc3\xa9 \"Noir\"");
    EXPECT_TRUE(m.hint.empty());

    TestFrames::TempLens trailing("{\"formatVersion\": 1, \"id\": \"x\", \"name\": \"X\"} extra");
    EXPECT_NE(loadError(trailing).find(":1: invalid JSON: unexpected text after the end"), std::string::npos);
}
