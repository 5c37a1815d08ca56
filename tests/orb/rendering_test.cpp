#include "testframes.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <orb/assetsystem.h>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <orb/effectsmanager.h>
#include <orb/externaleventsystem.h>
#include <orb/fileutils.h>
#include <orb/lensmanifest.h>
#include <orb/scene.h>
#include <orb/texturereader.h>

using Orb::CoreManager;

namespace {

// Serves assets from the bundle folder the way the application does.
struct BundleAssets : Orb::RemoteAssetsDelegate
{
    CoreManager *core = nullptr;
    std::string bundle = TestFrames::dataPath("PrecachedAssets.bundle");
    std::vector<std::string> requests;

    void requestAsset(const std::string &id) override
    {
        requests.push_back(id);
        auto effect = core->getEffectsManager()->getComplexEffect();
        if (!effect)
            return;
        auto assets = effect->getScene()->getAssetSystem();
        const std::string path = bundle + "/" + id;
        if (Orb::FileUtils::fileExists(path))
            assets->setAssetAvailable(id, path);
        else
            assets->setAssetFailed(id);
    }
    std::string queryText(const std::string &) override { return {}; }
};

// One GL context and one loaded landmark model for the whole program.
class Rendering : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        core = new CoreManager(nullptr, false, nullptr, nullptr);
        core->setSegmentationModelPath(ORB_SEGMENTATION_MODEL);
        frameOwner = TestFrames::toImage(TestFrames::place(TestFrames::load("astronaut.png"), 384, 0, 1.4));
        frame = frameOwner.get();
    }
    static void TearDownTestSuite()
    {
        delete core;
        frameOwner.reset();
    }

    void SetUp() override
    {
        assets = std::make_shared<BundleAssets>();
        assets->core = core;
        hints = std::make_shared<RecordingHints>();
        core->setRemoteAssetsDelegate(assets);
        core->setHintsDelegate(hints);
        core->setCameraInfo({});
        core->clearComplexEffect();
        core->deinitializeUnusedFilters();
        core->restartTracking({});
    }

    bool use(const std::string &folder)
    {
        return core->useComplexEffect(std::make_shared<Orb::ComplexEffectDescriptor>("test", folder));
    }

    // Renders `frames` frames at 30 fps from `start` seconds, returns the last.
    cv::Mat render(int frames = 1, const Orb::ImageBase *input = nullptr,
                   const Orb::ImageProcessingConfig &config = {})
    {
        std::shared_ptr<Orb::ImageBase> out;
        for (int i = 0; i < frames; ++i) {
            auto texture = core->processFrameToTexture(input ? *input : *frame,
                                                       Orb::Timestamp::fromSeconds(clock), true, config);
            clock += 1.0 / 30.0;
            out = reader.readTextureToImage(texture.buildNormalizedTexture());
        }
        return TestFrames::toMat(*out);
    }

    static cv::Mat input() { return TestFrames::toMat(*frame); }

    static double difference(const cv::Mat &a, const cv::Mat &b, const cv::Rect &region)
    {
        cv::Mat diff;
        cv::absdiff(a(region), b(region), diff);
        const cv::Scalar m = cv::mean(diff);
        return (m[0] + m[1] + m[2]) / 3.0;
    }

    static CoreManager *core;
    static Orb::ImageBase *frame;
    static std::shared_ptr<Orb::ImageBase> frameOwner;
    static double clock;
    std::shared_ptr<BundleAssets> assets;
    std::shared_ptr<RecordingHints> hints;
    Orb::TextureReader reader;
};

CoreManager *Rendering::core = nullptr;
Orb::ImageBase *Rendering::frame = nullptr;
std::shared_ptr<Orb::ImageBase> Rendering::frameOwner;
double Rendering::clock = 0.0;

// Where the portrait's features land in the frame (placed at 384,0 x1.4).
const cv::Rect kEyes(384 + 270, 125, 110, 40);
const cv::Rect kAboveHead(384 + 250, 0, 140, 60);
const cv::Rect kBackground(1000, 60, 80, 80);
const cv::Rect kSuit(384 + 120, 550, 80, 80);

} // namespace

TEST_F(Rendering, WithoutALensTheFrameComesBackUnchangedOrMirrored)
{
    const cv::Mat out = render();
    ASSERT_EQ(out.size(), cv::Size(1280, 720));
    EXPECT_EQ(difference(out, input(), cv::Rect(0, 0, 1280, 720)), 0.0);

    Orb::RectTransform mirror;
    mirror.flipHorizontally = true;
    core->setCameraInfo(Orb::CameraInfo(0, {1280, 720}, 24.45f, -1.0f, mirror));
    cv::Mat flipped;
    cv::flip(input(), flipped, 1);
    EXPECT_LT(difference(render(), flipped, cv::Rect(0, 0, 1280, 720)), 1.0);
}

TEST_F(Rendering, EverySampleLensLoadsAndRenders)
{
    // Every lens shipped in data/lenses, so that a new sample is covered too.
    int lenses = 0;
    for (const auto &entry : std::filesystem::directory_iterator(TestFrames::dataPath("lenses"))) {
        const std::string id = entry.path().filename().string();
        ++lenses;
        ASSERT_TRUE(use(entry.path().string())) << id << ": " << core->getLastError();
        const cv::Mat out = render(4);
        EXPECT_EQ(out.size(), cv::Size(1280, 720)) << id;
        EXPECT_EQ(core->getTrackedFaces().size(), 1u) << id;
        const double changed = difference(out, input(), cv::Rect(0, 0, 1280, 720));
        // A lens whose effects all start hidden waits for an expression, a
        // tap or an event.
        Orb::LensManifest manifest;
        std::string error;
        ASSERT_TRUE(Orb::LensManifest::load(entry.path().string(), manifest, error)) << error;
        const bool startsHidden = std::none_of(manifest.effects.begin(), manifest.effects.end(),
                                               [](const auto &effect) { return effect.visible; });
        if (startsHidden)
            EXPECT_EQ(changed, 0.0) << id;
        else
            EXPECT_GT(changed, 0.2) << id;
    }
    EXPECT_GE(lenses, 9) << "the sample lenses are missing";
}

TEST_F(Rendering, SunglassesCoverTheEyesOnly)
{
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/sunglasses"))) << core->getLastError();
    const cv::Mat out = render(3);
    const cv::Scalar eyesBefore = TestFrames::mean(input(), kEyes), eyesAfter = TestFrames::mean(out, kEyes);
    EXPECT_LT(eyesAfter[0] + eyesAfter[1] + eyesAfter[2],
              (eyesBefore[0] + eyesBefore[1] + eyesBefore[2]) * 0.5)
        << "dark lenses over the eyes";
    const cv::Rect chin(384 + 290, 240, 60, 20);
    EXPECT_LT(difference(out, input(), chin), 25.0) << "the chin keeps its look (only the warm tone)";
}

TEST_F(Rendering, PartyHatSitsAboveTheHead)
{
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/party-hat"))) << core->getLastError();
    EXPECT_GT(difference(render(3), input(), kAboveHead), 20.0);
    EXPECT_EQ(difference(render(), input(), kBackground), 0.0);
}

TEST_F(Rendering, MissingRemoteAssetFailsOnceAndTheLensStillRuns)
{
    TestFrames::TempLens lens(R"({"formatVersion": 1, "id": "t", "name": "T", "remoteAssets": ["nowhere.png"],
        "effects": [{"id": "s", "type": "sticker", "image": "asset:nowhere.png"}]})");
    ASSERT_TRUE(use(lens.folder)) << core->getLastError();
    render(5);
    EXPECT_EQ(assets->requests, std::vector<std::string>{"nowhere.png"});
    auto scene = core->getEffectsManager()->getComplexEffect()->getScene();
    EXPECT_EQ(scene->getAssetSystem()->state("nowhere.png"), Orb::Mosaica::AssetSystem::State::Failed);
}

TEST_F(Rendering, ReadBackImagesStayIntactWhileHeld)
{
    // The reader fills its last image again once it is released; one still
    // held must keep its pixels when the next frame is read.
    Orb::ImageBase grey(1280, 720, Orb::ColorSpace::RGBA);
    std::fill(grey.data(), grey.data() + grey.bytesPerLine() * 720, uint8_t(90));
    auto read = [&](const Orb::ImageBase &image) {
        return reader.readTextureToImage(
            core->processFrameToTexture(image, Orb::Timestamp::fromSeconds(clock), true, {})
                .buildNormalizedTexture());
    };
    std::shared_ptr<Orb::ImageBase> held = read(*frame);
    const cv::Mat heldCopy = TestFrames::toMat(*held);
    for (int i = 0; i < 2; ++i) {
        const auto next = read(grey);
        EXPECT_EQ(TestFrames::mean(TestFrames::toMat(*next), cv::Rect(0, 0, 1280, 720))[0], 90.0);
    }
    EXPECT_EQ(difference(TestFrames::toMat(*held), heldCopy, cv::Rect(0, 0, 1280, 720)), 0.0);
    EXPECT_EQ(difference(heldCopy, input(), cv::Rect(0, 0, 1280, 720)), 0.0);
    held.reset();
    EXPECT_EQ(difference(TestFrames::toMat(*read(*frame)), input(), cv::Rect(0, 0, 1280, 720)), 0.0);
}

TEST_F(Rendering, ReducedOutputShowsTheWholeScaledPicture)
{
    // Every pass must scale the camera picture to the output size, whether
    // it is a copy under stickers, a look-up, a shader or an overlay.
    Orb::ImageProcessingConfig half;
    half.outputWidth = 640;
    half.outputHeight = 360;
    for (const std::string id : {"party-hat", "film-noir", "confetti"}) {
        ASSERT_TRUE(use(TestFrames::dataPath("lenses/" + id))) << core->getLastError();
        if (id == "confetti")
            core->processTouchEvent({Orb::TouchEvent::Type::Tap, 0.5f, 0.5f});
        const cv::Mat full = render(3);
        const cv::Mat small = render(1, nullptr, half);
        ASSERT_EQ(small.size(), cv::Size(640, 360)) << id;
        cv::Mat expected;
        cv::resize(full, expected, small.size(), 0, 0, cv::INTER_AREA);
        EXPECT_LT(difference(small, expected, cv::Rect(0, 0, 640, 360)), 12.0) << id;
    }
}

TEST_F(Rendering, LookUpTableTurnsTheOrangeSuitGrey)
{
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/film-noir"))) << core->getLastError();
    const cv::Scalar suit = TestFrames::mean(render(), kSuit);
    const cv::Scalar original = TestFrames::mean(input(), kSuit);
    EXPECT_GT(original[0] - original[2], 100.0) << "the suit is orange to begin with";
    EXPECT_LT(std::abs(suit[0] - suit[2]), 20.0);
    EXPECT_LT(std::abs(suit[0] - suit[1]), 20.0);
}

TEST_F(Rendering, StartHintGoesThroughTheDelegate)
{
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/confetti"))) << core->getLastError();
    render(1);
    EXPECT_EQ(hints->calls, std::vector<std::string>{"show lens_hint_open_your_mouth"});
    // Taking the lens off before the hint times out hides it.
    core->clearComplexEffect();
    EXPECT_EQ(hints->calls, (std::vector<std::string>{"show lens_hint_open_your_mouth", "hide"}));
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/sunglasses"))) << core->getLastError();
    render(1);
    core->clearComplexEffect();
    EXPECT_EQ(hints->calls.size(), 2u) << "no hint, nothing to hide";
}

TEST_F(Rendering, ShaderErrorsCarryTheFileAndTheCompilerLog)
{
    TestFrames::TempLens lens(R"({"formatVersion": 1, "id": "t", "name": "T",
        "effects": [{"id": "a", "type": "shader", "shader": "broken.frag"}]})");
    lens.write("broken.frag", "void main()\n{\n    fragColor = vec4(undefinedThing, 1.0);\n}\n");
    EXPECT_FALSE(use(lens.folder));
    const std::string error = core->getLastError();
    EXPECT_EQ(error.rfind(lens.folder + "/broken.frag: shader does not compile:\n", 0), 0u) << error;
    EXPECT_NE(error.find("undefinedThing"), std::string::npos) << error;
    EXPECT_TRUE(error.find(":3(") != std::string::npos || error.find(":3:") != std::string::npos)
        << "line numbers count in the author's file: " << error;
    EXPECT_FALSE(core->getEffectsManager()->getComplexEffect());
}

TEST_F(Rendering, BrokenImagesAndTablesFailTheLoad)
{
    TestFrames::TempLens lens(R"({"formatVersion": 1, "id": "t", "name": "T",
        "effects": [{"id": "a", "type": "sticker", "image": "fake.png"}]})");
    lens.write("fake.png", "not a png");
    EXPECT_FALSE(use(lens.folder));
    EXPECT_NE(core->getLastError().find("fake.png\" is missing or not a readable image"), std::string::npos)
        << core->getLastError();

    TestFrames::TempLens lut(R"({"formatVersion": 1, "id": "t", "name": "T",
        "effects": [{"id": "a", "type": "lut", "image": "icon.png"}]})");
    lut.copy(TestFrames::dataPath("lenses/film-noir/icon.png"), "icon.png");
    EXPECT_FALSE(use(lut.folder));
    EXPECT_NE(core->getLastError().find("a look-up image needs N*N*N pixels"), std::string::npos)
        << core->getLastError();
}

TEST_F(Rendering, FailingFramesThrow)
{
    Orb::ImageBase empty(nullptr, 0, 0, 0, Orb::ColorSpace::RGBA, Orb::ImageBase::doNothingDeallocator);
    EXPECT_THROW(core->processFrameToTexture(empty, Orb::Timestamp::invalid(), false, {}),
                 std::runtime_error);
    EXPECT_THROW(reader.readTextureToImage(Orb::Texture()), std::runtime_error);
}
