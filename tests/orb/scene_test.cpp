#include "testframes.h"

#include <gtest/gtest.h>
#include <orb/assetsystem.h>
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

std::vector<Orb::Face> faceWith(void (*set)(Orb::FaceExpressions &))
{
    Orb::Face face = TestFrames::portraitFace();
    set(face.expressions);
    return {face};
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

TEST(Scene, MouthOpeningShowsAndRestartsConfettiOnEachRisingEdge)
{
    auto scene = sampleScene("confetti");
    auto hints = std::make_shared<RecordingHints>();
    scene->setHintsDelegate(hints);
    const auto closed = faceWith([](Orb::FaceExpressions &) {});
    const auto open = faceWith([](Orb::FaceExpressions &e) { e.isMouthOpen = true; });

    scene->update(closed, 0.0);
    EXPECT_EQ(hints->calls, std::vector<std::string>{"show lens_hint_open_your_mouth"});
    EXPECT_FALSE(scene->effectState("confetti").visible);
    scene->update(open, 1.0);
    EXPECT_TRUE(scene->effectState("confetti").visible);
    EXPECT_DOUBLE_EQ(scene->effectState("confetti").startTime, 1.0);
    EXPECT_EQ(hints->calls.back(), "hide");
    scene->update(open, 1.5);
    EXPECT_DOUBLE_EQ(scene->effectState("confetti").startTime, 1.0) << "held open is not a new trigger";
    scene->update(closed, 2.0);
    scene->update(open, 2.5);
    EXPECT_DOUBLE_EQ(scene->effectState("confetti").startTime, 2.5);
}

TEST(Scene, StartHintHidesAfterAFewSeconds)
{
    auto scene = sampleScene("heart-eyes");
    auto hints = std::make_shared<RecordingHints>();
    scene->setHintsDelegate(hints);
    scene->update({}, 0.0);
    scene->update({}, 2.9);
    EXPECT_EQ(hints->calls, std::vector<std::string>{"show lens_hint_smile"});
    scene->update({}, 3.1);
    scene->update({}, 5.0);
    EXPECT_EQ(hints->calls, (std::vector<std::string>{"show lens_hint_smile", "hide"}));
}

TEST(Scene, FaceFoundAndLostDriveHints)
{
    auto scene = sampleScene("big-eyes");
    auto hints = std::make_shared<RecordingHints>();
    scene->setHintsDelegate(hints);
    const auto face = faceWith([](Orb::FaceExpressions &) {});
    scene->update(face, 0.0);
    scene->update({}, 0.1);
    scene->update({}, 0.2);
    scene->update(face, 0.3);
    EXPECT_EQ(hints->calls, (std::vector<std::string>{"hide", "show lens_hint_find_face", "hide"}));
}

TEST(Scene, TapsCountAndReportWhetherTheLensUsesThem)
{
    auto pop = sampleScene("color-pop");
    pop->setTouchUsedByShaders(true);
    pop->update({}, 0.5);
    EXPECT_TRUE(pop->handleTouch({Orb::TouchEvent::Type::Tap, 0.25f, 0.75f}));
    EXPECT_EQ(pop->touchState().tapCount, 1);
    EXPECT_FLOAT_EQ(pop->touchState().tap.x, 0.25f);
    EXPECT_DOUBLE_EQ(pop->touchState().tapTime, 0.5);

    auto hat = sampleScene("party-hat");
    hat->update({}, 0.0);
    EXPECT_TRUE(hat->handleTouch({Orb::TouchEvent::Type::Tap, 0.5f, 0.5f}))
        << "a tap behaviour consumes taps";
    EXPECT_TRUE(hat->effectState("sparkles").visible);
    EXPECT_FALSE(hat->handleTouch({Orb::TouchEvent::Type::TouchBegin, 0.5f, 0.5f}));

    auto fireworks = sampleScene("fireworks");
    EXPECT_FALSE(fireworks->handleTouch({Orb::TouchEvent::Type::Tap, 0.5f, 0.5f}));
}

TEST(Scene, ExpressionTriggersFireForAnyFace)
{
    auto scene = sampleScene("heart-eyes");
    Orb::Face first = TestFrames::portraitFace();
    Orb::Face second = first;
    second.id = 2;
    scene->update({first, second}, 0.0);
    second.expressions.isSmiling = true;
    scene->update({first, second}, 1.0);
    EXPECT_TRUE(scene->effectState("hearts").visible);
    second.expressions.isBlinking = true;
    scene->update({first, second}, 1.4);
    EXPECT_DOUBLE_EQ(scene->effectState("hearts").startTime, 1.4);
}

TEST(AssetSystem, EachAssetIsRequestedOnceAndRemembersTheAnswer)
{
    struct Delegate : Orb::RemoteAssetsDelegate
    {
        Orb::Mosaica::AssetSystem *assets = nullptr;
        std::vector<std::string> requests;
        void requestAsset(const std::string &id) override
        {
            requests.push_back(id);
            if (id == "here.png")
                assets->setAssetAvailable(id, "/bundle/here.png");
            else
                assets->setAssetFailed(id);
        }
        std::string queryText(const std::string &) override { return {}; }
    } delegate;
    Orb::Mosaica::AssetSystem assets({"here.png", "gone.png"});
    delegate.assets = &assets;
    assets.requestAll(delegate);
    assets.requestAll(delegate);
    EXPECT_EQ(delegate.requests, (std::vector<std::string>{"here.png", "gone.png"}));
    EXPECT_EQ(assets.path("here.png"), "/bundle/here.png");
    EXPECT_EQ(assets.state("gone.png"), Orb::Mosaica::AssetSystem::State::Failed);
    EXPECT_EQ(assets.path("gone.png"), "");
    assets.setAssetAvailable("unknown.png", "/x");
    EXPECT_EQ(assets.state("unknown.png"), Orb::Mosaica::AssetSystem::State::NotRequested);
}
