#pragma once

#include "backgroundeffect.h"
#include "rendertarget.h"
#include "shaderprogram.h"
#include "texture.h"

#include <opencv2/core.hpp>
#include <string>

namespace Orb {

// The GPU half of person segmentation: turns the segmenter's guided-filter
// coefficients into a mask at any size (mask = a * luma + b, per pixel of the
// camera frame) and composites the background effects with it.
//
// Blur runs at a quarter (Light) or an eighth (Strong) of the frame size:
// the background is averaged with the person weighted out, so no halo of the
// person's colours spreads into it, blurred in two separable passes, and laid
// under the person in one full-size pass. Replacement is that last pass alone.
// Must be used on the thread owning the GL context.
class BackgroundCompositor
{
public:
    BackgroundCompositor() = default;
    ~BackgroundCompositor();
    BackgroundCompositor(const BackgroundCompositor &) = delete;
    BackgroundCompositor &operator=(const BackgroundCompositor &) = delete;

    // Compiles the shaders; false with the driver's log.
    bool initialize(std::string &error);
    // CV_32FC2 (a, b) from PersonSegmenter.
    void setCoefficients(const cv::Mat &coefficients);
    bool hasCoefficients() const { return m_coefficients != 0; }

    // The mask (red = person, 0..1) at the given size.
    Texture renderMask(const Texture &camera, Size size);
    // The camera frame with its background blurred.
    Texture blur(const Texture &camera, BackgroundEffect::BlurStrength strength);
    // The camera frame over a background picture of the camera's size.
    Texture replace(const Texture &camera, const Texture &background);

private:
    void drawFullScreen();
    Texture composite(const Texture &camera, const Texture &background, bool weighted);

    ShaderProgram m_mask, m_down, m_blur, m_composite;
    RenderTarget m_maskTarget, m_small[2], m_output;
    unsigned m_coefficients = 0;
    unsigned m_vao = 0;
};

} // namespace Orb
