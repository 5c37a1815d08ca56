#pragma once

#include "face.h"

namespace Orb {

// Turns landmarks into expression levels. Each face has its own neutral
// baseline, learnt over its first frames and then slowly adapted while the
// expression is off, so a face whose mouth or brows rest differently from the
// average still triggers reliably. Hysteresis keeps states from flickering.
class ExpressionAnalyzer
{
public:
    // Raw measures, all relative to the distance between the eyes.
    struct Measures
    {
        float mouthGap = 0.0f;
        float browHeight = 0.0f;
        float mouthWidth = 0.0f;
        float eyeOpening = 0.0f;
    };

    static Measures measure(const Face &face);

    // Updates the baseline with this frame and returns the expressions.
    FaceExpressions update(const Face &face);
    void reset();

private:
    struct Channel
    {
        float baseline = 0.0f;
        bool on = false;
    };

    float level(Channel &channel, float value, float range, float onAt, float offAt);

    static constexpr int kLearningFrames = 8;
    int m_frames = 0;
    Channel m_mouth, m_brows, m_smile, m_blink;
};

} // namespace Orb
