#include "expressionanalyzer.h"

#include <algorithm>

namespace Orb {

ExpressionAnalyzer::Measures ExpressionAnalyzer::measure(const Face &face)
{
    const auto &p = face.landmarks;
    const float scale = std::max(face.eyeDistance(), 1.0f);
    Measures m;
    m.mouthGap =
        (Face::distance(p[61], p[67]) + Face::distance(p[62], p[66]) + Face::distance(p[63], p[65])) /
        (3.0f * scale);
    // Brow height: from each eye's centre up to the middle of its brow.
    const float left = Face::distance(face.leftEye(), face.average(17, 21));
    const float right = Face::distance(face.rightEye(), face.average(22, 26));
    m.browHeight = (left + right) / (2.0f * scale);
    m.mouthWidth = Face::distance(p[48], p[54]) / scale;
    auto opening = [&](int a, int b, int c, int d, int e, int f) {
        return (Face::distance(p[b], p[f]) + Face::distance(p[c], p[e])) /
               (2.0f * std::max(Face::distance(p[a], p[d]), 1.0f));
    };
    m.eyeOpening = (opening(36, 37, 38, 39, 40, 41) + opening(42, 43, 44, 45, 46, 47)) * 0.5f;
    return m;
}

void ExpressionAnalyzer::reset()
{
    *this = ExpressionAnalyzer();
}

float ExpressionAnalyzer::level(Channel &channel, float value, float range, float onAt, float offAt)
{
    if (m_frames <= kLearningFrames) {
        // Running mean over the first frames.
        channel.baseline += (value - channel.baseline) / static_cast<float>(m_frames);
        return 0.0f;
    }
    const float delta = value - channel.baseline;
    if (!channel.on && delta > onAt)
        channel.on = true;
    else if (channel.on && delta < offAt)
        channel.on = false;
    if (!channel.on && delta < offAt)
        channel.baseline += (value - channel.baseline) * 0.02f;
    return std::clamp(delta / range, 0.0f, 1.0f);
}

FaceExpressions ExpressionAnalyzer::update(const Face &face)
{
    ++m_frames;
    const Measures m = measure(face);
    FaceExpressions e;
    e.mouthOpen = level(m_mouth, m.mouthGap, 0.45f, 0.16f, 0.09f);
    e.eyebrowsRaised = level(m_brows, m.browHeight, 0.15f, 0.07f, 0.04f);
    e.smile = level(m_smile, m.mouthWidth, 0.25f, 0.12f, 0.07f);
    // A blink lowers the eye opening, so measure it the other way round.
    e.blink = level(m_blink, -m.eyeOpening, 0.15f, 0.08f, 0.04f);
    e.isMouthOpen = m_mouth.on;
    e.areEyebrowsRaised = m_brows.on;
    e.isSmiling = m_smile.on;
    e.isBlinking = m_blink.on;
    return e;
}

} // namespace Orb
