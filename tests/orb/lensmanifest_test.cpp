#include "testframes.h"

#include <gtest/gtest.h>
#include <orb/lensmanifest.h>

using Orb::LensManifest;

namespace {
const std::string kHeader = R"({"formatVersion": 1, "id": "test", "name": "Test")";
} // namespace

TEST(LensManifest, ErrorsCarryFileLineAndReason)
{
    LensManifest manifest;
    std::string error;
    EXPECT_FALSE(LensManifest::load("/nonexistent/lens", manifest, error));
    EXPECT_EQ(error, "/nonexistent/lens/lens.json: file not found or not readable");

    const std::pair<std::string, std::string> cases[] = {
        // manifest, error after "<folder>/lens.json:"
        {kHeader + ",\n\"effects\": [\n  {\"id\": \"a\", \"type\": \"blur\"}\n]}",
         "3: unknown effect type \"blur\" (known: shader, lut, sticker)"},
        {kHeader +
             ",\n\"effects\": [\n {\"id\": \"s\", \"type\": \"sticker\",\n  \"image\": \"nothere.png\"}]}",
         "4: file \"nothere.png\" not found in the lens folder"},
        {"{\n\"formatVersion\": 2,\n\"id\": \"x\", \"name\": \"X\"}",
         "2: format version 2 is newer than this program supports (1); please update"},
        {kHeader + ",\n\"icon\": \"../outside.png\"}",
         "2: \"../outside.png\" must be a path inside the lens folder"},
        {kHeader +
             ",\n\"effects\": [{\"id\": \"s\", \"type\": \"shader\",\n\"shader\": \"../../etc/passwd\"}]}",
         "3: \"../../etc/passwd\" must be a path inside the lens folder"},
    };
    for (const auto &[text, expected] : cases) {
        TestFrames::TempLens lens(text);
        EXPECT_FALSE(LensManifest::load(lens.folder, manifest, error));
        EXPECT_EQ(error, lens.folder + "/lens.json:" + expected) << text;
    }
}
