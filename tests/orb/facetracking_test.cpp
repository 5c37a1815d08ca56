#include "testframes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <opencv2/videoio.hpp>
#include <orb/facetracker.h>
#include <orb/landmarkmodel.h>
#include <thread>

using Orb::Face;
using Orb::FaceTracker;

namespace {
// Hand-read positions in astronaut.png: pupils and the middle of the lips.
const Orb::Point kLeftEye{203, 101}, kRightEye{247, 104}, kMouth{223, 146};

class FaceTracking : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(tracker.initialize(Orb::LandmarkModel::path(), error)) << error;
    }

    const std::vector<Face> &run(const cv::Mat &frame, int frames = 1, bool synchronous = true)
    {
        auto image = TestFrames::toImage(frame);
        for (int i = 0; i < frames; ++i)
            tracker.process(*image, (clock++) / 30.0, synchronous);
        return tracker.faces();
    }

    FaceTracker tracker;
    int clock = 0;
};

void expectNear(Orb::Point actual, Orb::Point expected, float tolerance, const char *what)
{
    EXPECT_LT(Face::distance(actual, expected), tolerance)
        << what << " at (" << actual.x << ", " << actual.y << "), expected (" << expected.x << ", "
        << expected.y << ")";
}

} // namespace

TEST_F(FaceTracking, FindsThePortraitAtSeveralPositionsAndScales)
{
    const cv::Mat portrait = TestFrames::load("astronaut.png");
    struct Placement
    {
        int x, y;
        double scale;
    };
    for (const Placement p : {Placement{384, 104, 1.25}, Placement{40, 0, 1.6}, Placement{700, -60, 2.2},
                              Placement{520, 200, 1.4}}) {
        tracker.restart({});
        const auto &faces = run(TestFrames::place(portrait, p.x, p.y, p.scale), 3);
        ASSERT_EQ(faces.size(), 1u) << "at " << p.x << "," << p.y << " x" << p.scale;
        auto at = [&](Orb::Point q) {
            return Orb::Point{p.x + q.x * float(p.scale), p.y + q.y * float(p.scale)};
        };
        const float tolerance = 3.0f * static_cast<float>(p.scale);
        expectNear(faces[0].leftEye(), at(kLeftEye), tolerance, "left eye");
        expectNear(faces[0].rightEye(), at(kRightEye), tolerance, "right eye");
        expectNear(faces[0].mouthCenter(), at(kMouth), tolerance, "mouth");
    }
}

TEST_F(FaceTracking, SensorNoiseDoesNotMakeLandmarksJitter)
{
    const cv::Mat still = TestFrames::place(TestFrames::load("astronaut.png"), 384, 104, 1.4);
    cv::RNG rng(7);
    auto noisy = [&] {
        cv::Mat noise(still.size(), CV_16SC3), out;
        rng.fill(noise, cv::RNG::NORMAL, 0, 4);
        still.convertTo(out, CV_16SC3);
        out += noise;
        out.convertTo(out, CV_8UC3);
        return out;
    };
    ASSERT_EQ(run(noisy(), 3).size(), 1u);
    Face previous = tracker.faces()[0];
    float worst = 0.0f;
    for (int i = 0; i < 30; ++i) {
        const auto &faces = run(noisy());
        ASSERT_EQ(faces.size(), 1u) << "frame " << i;
        EXPECT_EQ(faces[0].id, previous.id) << "the same face keeps its id";
        // Eyes carry stickers: their frame-to-frame movement is what shows.
        worst = std::max({worst, Face::distance(faces[0].leftEye(), previous.leftEye()),
                          Face::distance(faces[0].rightEye(), previous.rightEye())});
        previous = faces[0];
    }
    EXPECT_LT(worst, 0.35f) << "eye centres move between frames of a still face";
}

TEST_F(FaceTracking, SlowlyDriftingFacesKeepTheirLandmarksOnEveryFrame)
{
    // Two faces drifting slowly apart: steady faces are fitted every other
    // frame and moved on in between, so every frame is checked, not just
    // the fitted ones.
    const cv::Mat portrait = TestFrames::load("astronaut.png");
    auto frameAt = [&](int step) {
        cv::Mat two = TestFrames::place(portrait, 20 - 2 * step, 60, 1.2);
        TestFrames::place(portrait, 640 + 2 * step, 60, 1.2)(cv::Rect(640, 0, 640, 720))
            .copyTo(two(cv::Rect(640, 0, 640, 720)));
        return two;
    };
    ASSERT_EQ(run(frameAt(0), 3).size(), 2u);
    for (int step = 1; step <= 40; ++step) {
        const auto &faces = run(frameAt(step));
        ASSERT_EQ(faces.size(), 2u) << "step " << step;
        for (const Face &face : faces) {
            const float x = face.leftEye().x < 640 ? 20 - 2 * step : 640 + 2 * step;
            expectNear(face.leftEye(), {x + kLeftEye.x * 1.2f, 60 + kLeftEye.y * 1.2f}, 3.3f, "left eye");
            expectNear(face.mouthCenter(), {x + kMouth.x * 1.2f, 60 + kMouth.y * 1.2f}, 3.3f, "mouth");
        }
    }
}

TEST_F(FaceTracking, CatIsNoHumanFace)
{
    EXPECT_TRUE(run(TestFrames::place(TestFrames::load("chelsea.png"), 200, 50, 1.8), 10).empty());
    EXPECT_TRUE(run(TestFrames::place(TestFrames::load("chelsea.png"), 0, 0, 2.8), 5).empty());
}

TEST_F(FaceTracking, TracksSeveralFacesAndDropsOneThatLeaves)
{
    const cv::Mat portrait = TestFrames::load("astronaut.png");
    cv::Mat two = TestFrames::place(portrait, 20, 60, 1.2);
    TestFrames::place(portrait, 640, 60, 1.2)(cv::Rect(640, 0, 640, 720))
        .copyTo(two(cv::Rect(640, 0, 640, 720)));
    const auto &faces = run(two, 2);
    ASSERT_EQ(faces.size(), 2u);
    EXPECT_NE(faces[0].id, faces[1].id);
    // The right-hand face leaves: it is dropped within a few frames.
    const cv::Mat one = TestFrames::place(portrait, 20, 60, 1.2);
    EXPECT_EQ(run(one, 12).size(), 1u);
}

TEST_F(FaceTracking, FaceTurningIntoViewIsFoundWithinAFewFrames)
{
    const cv::Mat portrait = TestFrames::load("astronaut.png");
    // Strongly tilted heads are beyond the frontal detector; as the head
    // turns upright it must be picked up promptly.
    int foundAt = -1;
    const double angles[] = {90, 80, 70, 60, 50, 40, 30, 20, 10, 0, 0, 0};
    for (int i = 0; i < 12; ++i) {
        const auto &faces = run(TestFrames::place(portrait, 384, 104, 1.4, angles[i]));
        if (i < 2) {
            EXPECT_TRUE(faces.empty()) << "a face lying on its side is not expected at " << angles[i];
        }
        if (!faces.empty() && foundAt < 0)
            foundAt = i;
    }
    ASSERT_GE(foundAt, 0);
    EXPECT_LE(angles[foundAt], 45.0) << "found too early to be plausible";
    EXPECT_GE(angles[foundAt], 10.0) << "found only when already upright";
}

TEST_F(FaceTracking, BackgroundDetectionFindsAFaceWithoutStallingFrames)
{
    const cv::Mat frame = TestFrames::place(TestFrames::load("astronaut.png"), 384, 104, 1.4);
    int frames = 0;
    while (run(frame, 1, false).empty() && frames < 200) {
        ++frames;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_LT(frames, 200) << "the background search never reported the face";
    EXPECT_EQ(tracker.faces().size(), 1u);
}

TEST_F(FaceTracking, RestartForgetsFacesAndFindsThemAgain)
{
    const cv::Mat frame = TestFrames::place(TestFrames::load("astronaut.png"), 384, 104, 1.4);
    ASSERT_EQ(run(frame, 2).size(), 1u);
    const int oldId = tracker.faces()[0].id;
    tracker.restart({});
    EXPECT_TRUE(tracker.faces().empty());
    ASSERT_EQ(run(frame).size(), 1u);
    EXPECT_NE(tracker.faces()[0].id, oldId);

    // A search limited to the first frame after the restart: a face that
    // only shows up later is not looked for.
    Orb::TrackingRequestInfo brief;
    brief.maxSearchSeconds = 0.0f;
    tracker.restart(brief);
    EXPECT_TRUE(run(TestFrames::place(TestFrames::load("chelsea.png"), 0, 0, 2.0)).empty());
    EXPECT_TRUE(run(frame, 3).empty()) << "searching stops after the requested time";
    tracker.restart({});
    EXPECT_EQ(run(frame).size(), 1u);
}

TEST(LandmarkModel, PathIsConfigurationAndBadFilesAreReported)
{
    const std::string fake = "/tmp/orb-not-a-model.dat";
    {
        FILE *f = std::fopen(fake.c_str(), "w");
        ASSERT_TRUE(f);
        std::fputs("not a model", f);
        std::fclose(f);
    }
    setenv("ORB_LANDMARK_MODEL", fake.c_str(), 1);
    EXPECT_EQ(Orb::LandmarkModel::path(), fake);
    unsetenv("ORB_LANDMARK_MODEL");

    std::string error;
    EXPECT_FALSE(Orb::LandmarkModel::shared(fake, error));
    EXPECT_EQ(error.rfind("landmark model " + fake + " could not be read", 0), 0u) << error;
    EXPECT_FALSE(Orb::LandmarkModel::shared("/nonexistent.dat", error));
    EXPECT_EQ(error, "landmark model not found at /nonexistent.dat (set ORB_LANDMARK_MODEL)");
    std::remove(fake.c_str());
}

namespace {
// Faces found in each frame of a clip, tracked in lockstep.
std::vector<int> facesPerFrame(const std::string &clip, int frames)
{
    FaceTracker tracker;
    std::string error;
    EXPECT_TRUE(tracker.initialize(Orb::LandmarkModel::path(), error)) << error;
    cv::VideoCapture video(clip);
    EXPECT_TRUE(video.isOpened()) << clip;
    std::vector<int> counts;
    cv::Mat bgr;
    for (int i = 0; i < frames && video.read(bgr); ++i) {
        auto image = TestFrames::toImage(bgr);
        counts.push_back(int(tracker.process(*image, i / 30.0, FaceTracker::Detection::Lockstep).size()));
    }
    return counts;
}
} // namespace

TEST(FaceTrackingClip, MovingTurningScalingFaceIsFoundAtOnceAndKeptReproducibly)
{
    constexpr int kFrames = 300;
    const std::vector<int> counts = facesPerFrame(ORB_TEST_MOVING_CLIP, kFrames);
    ASSERT_EQ(counts.size(), size_t(kFrames));
    const auto first = std::find_if(counts.begin(), counts.end(), [](int n) { return n > 0; });
    ASSERT_NE(first, counts.end()) << "the face was never found";
    EXPECT_LE(first - counts.begin(), 9) << "found later than 300 ms into the clip";
    const long kept = std::count(first, counts.end(), 1);
    std::string lost;
    for (auto it = first; it != counts.end(); ++it)
        if (*it != 1)
            lost += " " + std::to_string(it - counts.begin()) + ":" + std::to_string(*it);
    EXPECT_GE(double(kept) / double(counts.end() - first), 0.98)
        << "kept in " << kept << " of " << (counts.end() - first) << " frames; frames (faces) without"
        << lost;
    // The same frames give the same faces, however busy the machine is.
    EXPECT_EQ(facesPerFrame(ORB_TEST_MOVING_CLIP, kFrames), counts);
}
