#include "testframes.h"

#include <gtest/gtest.h>
#include <orb/expressionanalyzer.h>

using Orb::ExpressionAnalyzer;
using Orb::Face;

namespace {
// Moves the landmarks `points` down by `amount` eye distances (up when negative).
Face moved(Face face, std::initializer_list<int> points, float amount)
{
    const float shift = amount * face.eyeDistance();
    for (int i : points)
        face.landmarks[i].y += shift;
    return face;
}
Face openMouth(const Face &face, float amount)
{
    return moved(face, {5, 6, 7, 8, 9, 10, 11, 55, 56, 57, 58, 59, 65, 66, 67}, amount);
}

// An analyzer that has learnt `face` as the resting face.
std::unique_ptr<ExpressionAnalyzer> settled(const Face &face)
{
    auto analyzer = std::make_unique<ExpressionAnalyzer>();
    for (int i = 0; i < 10; ++i)
        analyzer->update(face);
    return analyzer;
}
} // namespace

// The level rises as the lips part; between the off and on thresholds the
// state stays what it was, so it does not flicker.
TEST(Expressions, MouthOpenRisesWithHysteresis)
{
    const Face neutral = TestFrames::portraitFace();
    auto analyzer = settled(neutral);
    float previous = -1.0f;
    for (float amount : {0.0f, 0.1f, 0.2f, 0.3f, 0.4f}) {
        const float level = analyzer->update(openMouth(neutral, amount)).mouthOpen;
        EXPECT_GT(level, previous) << amount;
        previous = level;
    }
    EXPECT_FALSE(analyzer->update(neutral).isMouthOpen);
    EXPECT_FALSE(analyzer->update(openMouth(neutral, 0.12f)).isMouthOpen);
    EXPECT_TRUE(analyzer->update(openMouth(neutral, 0.4f)).isMouthOpen);
    EXPECT_TRUE(analyzer->update(openMouth(neutral, 0.12f)).isMouthOpen);
    EXPECT_FALSE(analyzer->update(openMouth(neutral, 0.02f)).isMouthOpen);
}
