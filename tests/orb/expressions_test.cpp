#include "testframes.h"

#include <orb/expressionanalyzer.h>
#include <gtest/gtest.h>

using Orb::ExpressionAnalyzer;
using Orb::Face;

namespace {
// Moves the lower lip and the chin down by `amount` eye distances.
Face openMouth(Face face, float amount)
{
    const float shift = amount * face.eyeDistance();
    for (int i : {5, 6, 7, 8, 9, 10, 11, 55, 56, 57, 58, 59, 65, 66, 67})
        face.landmarks[i].y += shift;
    return face;
}

Face raiseBrows(Face face, float amount)
{
    const float shift = amount * face.eyeDistance();
    for (int i = 17; i <= 26; ++i)
        face.landmarks[i].y -= shift;
    return face;
}

Face closeEyes(Face face)
{
    for (int i : {37, 38, 43, 44})
        face.landmarks[i].y += 3.0f;
    for (int i : {40, 41, 46, 47})
        face.landmarks[i].y -= 1.5f;
    return face;
}

void settle(ExpressionAnalyzer &analyzer, const Face &face)
{
    for (int i = 0; i < 10; ++i)
        analyzer.update(face);
}
} // namespace

TEST(Expressions, MouthOpenRisesAsTheLipsMoveApart)
{
    const Face neutral = TestFrames::portraitFace();
    ExpressionAnalyzer analyzer;
    settle(analyzer, neutral);
    EXPECT_FALSE(analyzer.update(neutral).isMouthOpen);
    float previous = -1.0f;
    for (float amount : {0.0f, 0.1f, 0.2f, 0.3f, 0.4f}) {
        const float level = analyzer.update(openMouth(neutral, amount)).mouthOpen;
        EXPECT_GT(level, previous) << amount;
        previous = level;
    }
    EXPECT_TRUE(analyzer.update(openMouth(neutral, 0.4f)).isMouthOpen);
    EXPECT_FALSE(analyzer.update(neutral).isMouthOpen);
}

TEST(Expressions, HysteresisKeepsStatesFromFlickering)
{
    const Face neutral = TestFrames::portraitFace();
    ExpressionAnalyzer analyzer;
    settle(analyzer, neutral);
    // Between the off and on thresholds: stays off when coming from closed...
    EXPECT_FALSE(analyzer.update(openMouth(neutral, 0.12f)).isMouthOpen);
    // ...and stays on when coming from wide open.
    EXPECT_TRUE(analyzer.update(openMouth(neutral, 0.4f)).isMouthOpen);
    EXPECT_TRUE(analyzer.update(openMouth(neutral, 0.12f)).isMouthOpen);
    EXPECT_FALSE(analyzer.update(openMouth(neutral, 0.02f)).isMouthOpen);
}

TEST(Expressions, BaselineIsPerFaceSoAnOpenRestingMouthDoesNotTrigger)
{
    // A face that rests with its mouth half open must not count as "open",
    // yet opening it further must.
    const Face resting = openMouth(TestFrames::portraitFace(), 0.2f);
    ExpressionAnalyzer analyzer;
    settle(analyzer, resting);
    EXPECT_FALSE(analyzer.update(resting).isMouthOpen);
    EXPECT_LT(analyzer.update(resting).mouthOpen, 0.05f);
    EXPECT_TRUE(analyzer.update(openMouth(resting, 0.3f)).isMouthOpen);

    analyzer.reset();
    EXPECT_FALSE(analyzer.update(openMouth(resting, 0.3f)).isMouthOpen) << "reset must relearn the baseline";
}

TEST(Expressions, BrowsSmileAndBlinkAreSeparateChannels)
{
    const Face neutral = TestFrames::portraitFace();
    ExpressionAnalyzer analyzer;
    settle(analyzer, neutral);
    const auto brows = analyzer.update(raiseBrows(neutral, 0.15f));
    EXPECT_TRUE(brows.areEyebrowsRaised);
    EXPECT_FALSE(brows.isMouthOpen);
    EXPECT_FALSE(brows.isBlinking);
    analyzer.update(neutral);

    Face wide = neutral;
    wide.landmarks[48].x -= 0.12f * neutral.eyeDistance();
    wide.landmarks[54].x += 0.12f * neutral.eyeDistance();
    const auto smile = analyzer.update(wide);
    EXPECT_TRUE(smile.isSmiling);
    EXPECT_FALSE(smile.areEyebrowsRaised);

    const auto blink = analyzer.update(closeEyes(neutral));
    EXPECT_TRUE(blink.isBlinking);
    EXPECT_FALSE(blink.isSmiling);
}
