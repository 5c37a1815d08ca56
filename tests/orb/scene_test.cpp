#include "testframes.h"

#include <gtest/gtest.h>
#include <orb/externaleventsystem.h>
#include <orb/scene.h>

using Orb::Mosaica::Scene;

namespace {
std::unique_ptr<Scene> sampleScene(const std::string &id)
{
    Orb::LensManifest manifest;
    std::string error;
    EXPECT_TRUE(Orb::LensManifest::load(TestFrames::dataPath("lenses/" + id), manifest, error)) << error;
    return std::make_unique<Scene>(std::move(manifest));
}

} // namespace

TEST(Scene, ExternalTriggerTogglesTheFireworks)
{
    auto scene = sampleScene("fireworks");
    auto events = scene->getExternalEventSystem();
    ASSERT_TRUE(events);
    EXPECT_EQ(scene->getSupportedExternalTriggers(), std::vector<std::string>{"trigger1"});
    scene->update({}, 0.0);
    EXPECT_FALSE(scene->effectState("fireworks").visible);

    scene->update({}, 2.0);
    events->triggerEvents("trigger1", "{\"user\": \"x\"}");
    EXPECT_TRUE(scene->effectState("fireworks").visible);
    EXPECT_DOUBLE_EQ(scene->effectState("fireworks").startTime, 2.0) << "showing restarts the animation";

    events->triggerEvents("donate", "");
    EXPECT_TRUE(scene->effectState("fireworks").visible) << "undeclared events are ignored";
    // The name may also arrive as the payload with an empty type.
    events->triggerEvents("", "trigger1");
    EXPECT_FALSE(scene->effectState("fireworks").visible);
}
