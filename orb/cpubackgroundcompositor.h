#pragma once

#include "backgroundeffect.h"

#include <opencv2/core.hpp>

namespace Orb {

// The background effects on the CPU, for software OpenGL renderers: there a
// full-size GL pass costs more processor time than mask, blur and blend
// together on the CPU (see docs/segmentation.md). Works on the RGBA frame
// before it is uploaded, with the same mask formula and blur sizes as
// BackgroundCompositor.
class CpuBackgroundCompositor
{
public:
    // CV_32FC2 (a, b) from PersonSegmenter.
    void setCoefficients(const cv::Mat &coefficients) { m_coefficients = coefficients; }
    bool hasCoefficients() const { return !m_coefficients.empty(); }

    // The person mask for an RGBA frame, 8-bit at half the frame's size
    // (rounded up), kept until the next call.
    const cv::Mat &computeHalfMask(const cv::Mat &rgba);
    // The half-size mask of the last frame composited or computed.
    const cv::Mat &halfMask() const { return m_halfMask; }
    // Lays the blurred background under the person, in place (RGBA).
    void blur(cv::Mat &rgba, BackgroundEffect::BlurStrength strength);
    // Lays a picture of the frame's size (RGBA) under the person, in place.
    void replace(cv::Mat &rgba, const cv::Mat &background);

private:
    // The half-size mask scaled up to the frame's size, for blending.
    void scaleMask(cv::Size size);
    void blend(cv::Mat &rgba, const cv::Mat &background) const;

    cv::Mat m_coefficients, m_scaled, m_half, m_halfGray, m_halfMask, m_mask;
    cv::Mat m_small, m_smallMask, m_blurred;
};

} // namespace Orb
