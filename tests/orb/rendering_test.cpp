#include "testframes.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <orb/assetsystem.h>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <orb/effectsmanager.h>
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
        frame = TestFrames::toImage(TestFrames::place(TestFrames::load("astronaut.png"), 384, 0, 1.4));
    }
    static void TearDownTestSuite()
    {
        delete core;
        frame.reset();
    }

    void SetUp() override
    {
        assets = std::make_shared<BundleAssets>();
        assets->core = core;
        core->setRemoteAssetsDelegate(assets);
        core->setCameraInfo({});
        core->clearComplexEffect();
        core->deinitializeUnusedFilters();
        core->restartTracking({});
    }

    bool use(const std::string &folder)
    {
        return core->useComplexEffect(std::make_shared<Orb::ComplexEffectDescriptor>("test", folder));
    }

    std::shared_ptr<Orb::ImageBase> read(const Orb::ImageBase &image)
    {
        auto texture = core->processFrameToTexture(image, Orb::Timestamp::fromSeconds(clock), true, {});
        clock += 1.0 / 30.0;
        return reader.readTextureToImage(texture.buildNormalizedTexture());
    }
    // Renders `frames` frames of the portrait at 30 fps, returns the last.
    cv::Mat render(int frames = 1)
    {
        for (int i = 1; i < frames; ++i)
            read(*frame);
        return TestFrames::toMat(*read(*frame));
    }

    static cv::Mat input() { return TestFrames::toMat(*frame); }

    static double difference(const cv::Mat &a, const cv::Mat &b, const cv::Rect &region = {0, 0, 1280, 720})
    {
        cv::Mat diff;
        cv::absdiff(a(region), b(region), diff);
        const cv::Scalar m = cv::mean(diff);
        return (m[0] + m[1] + m[2]) / 3.0;
    }

    static CoreManager *core;
    static std::shared_ptr<Orb::ImageBase> frame;
    static double clock;
    std::shared_ptr<BundleAssets> assets;
    Orb::TextureReader reader;
};

CoreManager *Rendering::core = nullptr;
std::shared_ptr<Orb::ImageBase> Rendering::frame;
double Rendering::clock = 0.0;

} // namespace

TEST_F(Rendering, WithoutALensTheFrameComesBackUnchangedOrMirrored)
{
    const cv::Mat out = render();
    ASSERT_EQ(out.size(), cv::Size(1280, 720));
    EXPECT_EQ(difference(out, input()), 0.0);

    Orb::RectTransform mirror;
    mirror.flipHorizontally = true;
    core->setCameraInfo(Orb::CameraInfo(0, {1280, 720}, 24.45f, -1.0f, mirror));
    cv::Mat flipped;
    cv::flip(input(), flipped, 1);
    EXPECT_LT(difference(render(), flipped), 1.0);
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
        const double changed = difference(out, input());
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

// Dark glasses over the portrait's eyes; the chin keeps its look.
TEST_F(Rendering, SunglassesCoverTheEyes)
{
    ASSERT_TRUE(use(TestFrames::dataPath("lenses/sunglasses"))) << core->getLastError();
    const cv::Mat out = render(3);
    const auto eyes = [](const cv::Mat &rgba) {
        const cv::Scalar m = cv::mean(rgba(cv::Rect(384 + 270, 125, 110, 40)));
        return m[0] + m[1] + m[2];
    };
    EXPECT_LT(eyes(out), eyes(input()) * 0.5);
    EXPECT_LT(difference(out, input(), cv::Rect(384 + 290, 240, 60, 20)), 25.0);
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

// Each broken file fails the load with its name and the reason; a shader's
// compiler log counts lines in the author's file.
TEST_F(Rendering, BrokenLensFilesFailTheLoad)
{
    struct Case
    {
        const char *effect, *file, *content, *error;
    };
    for (const Case &c : {Case{R"("type": "shader", "shader": "broken.frag")", "broken.frag",
                               "void main()\n{\n    fragColor = vec4(undefinedThing, 1.0);\n}\n",
                               "/broken.frag: shader does not compile:\n"},
                          Case{R"("type": "sticker", "image": "fake.png")", "fake.png", "not a png",
                               "fake.png\" is missing or not a readable image"},
                          Case{R"("type": "lut", "image": "icon.png")", nullptr, nullptr,
                               "a look-up image needs N*N*N pixels"}}) {
        TestFrames::TempLens lens(
            std::string(R"({"formatVersion": 1, "id": "t", "name": "T", "effects": [{"id": "a", )") +
            c.effect + "}]}");
        if (c.file)
            lens.write(c.file, c.content);
        else
            lens.copy(TestFrames::dataPath("lenses/film-noir/icon.png"), "icon.png");
        EXPECT_FALSE(use(lens.folder));
        const std::string error = core->getLastError();
        EXPECT_NE(error.find(c.error), std::string::npos) << error;
        EXPECT_FALSE(core->getEffectsManager()->getComplexEffect());
        if (c.file && std::string(c.file) == "broken.frag") { // the compiler's log, from the file's start
            EXPECT_EQ(error.rfind(lens.folder + c.error, 0), 0u) << error;
            EXPECT_NE(error.find("undefinedThing"), std::string::npos) << error;
            EXPECT_TRUE(error.find(":3(") != std::string::npos || error.find(":3:") != std::string::npos)
                << error;
        }
    }
}
