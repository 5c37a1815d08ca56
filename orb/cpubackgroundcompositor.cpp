#include "cpubackgroundcompositor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
// smoothstep(0.15, 0.85, m) as in the GPU shaders, as a table over 8-bit m.
const uint8_t *edgeTable()
{
    static const auto table = [] {
        std::array<uint8_t, 256> t{};
        for (int i = 0; i < 256; ++i) {
            const float x = std::clamp((i / 255.0f - 0.15f) / 0.7f, 0.0f, 1.0f);
            t[i] = static_cast<uint8_t>(std::lround(x * x * (3.0f - 2.0f * x) * 255.0f));
        }
        return t;
    }();
    return table.data();
}
} // namespace

// The mask is evaluated at half size and scaled up: the guided-filter
// coefficients are smooth, so the half-size luma carries the edges, at a
// quarter of the arithmetic. The half-size frame is kept for the blur.
const cv::Mat &CpuBackgroundCompositor::computeHalfMask(const cv::Mat &rgba)
{
    CV_Assert(rgba.type() == CV_8UC4 && !m_coefficients.empty());
    const cv::Size half((rgba.cols + 1) / 2, (rgba.rows + 1) / 2);
    cv::resize(rgba, m_half, half, 0, 0, cv::INTER_AREA);
    cv::cvtColor(m_half, m_halfGray, cv::COLOR_RGBA2GRAY);
    cv::resize(m_coefficients, m_scaled, half, 0, 0, cv::INTER_LINEAR);
    m_halfMask.create(half, CV_8U);
    const uint8_t *edge = edgeTable();
    for (int y = 0; y < half.height; ++y) {
        const cv::Vec2f *ab = m_scaled.ptr<cv::Vec2f>(y);
        const uint8_t *g = m_halfGray.ptr(y);
        uint8_t *m = m_halfMask.ptr(y);
        for (int x = 0; x < half.width; ++x) {
            const float v = std::clamp(ab[x][0] * g[x] * (1.0f / 255.0f) + ab[x][1], 0.0f, 1.0f);
            m[x] = edge[static_cast<int>(v * 255.0f + 0.5f)];
        }
    }
    return m_halfMask;
}

void CpuBackgroundCompositor::scaleMask(cv::Size size)
{
    cv::resize(m_halfMask, m_mask, size, 0, 0, cv::INTER_LINEAR);
}

void CpuBackgroundCompositor::blur(cv::Mat &rgba, BackgroundEffect::BlurStrength strength)
{
    const bool strong = strength == BackgroundEffect::BlurStrength::Strong;
    const int factor = strong ? 8 : 4;
    const cv::Size small((rgba.cols + factor - 1) / factor, (rgba.rows + factor - 1) / factor);
    computeHalfMask(rgba);
    scaleMask(rgba.size());
    // Average down, weight the person out, blur colour and weight alike and
    // divide: the person's colours do not spread into the background.
    // Halving step by step from the half-size frame is the same average as
    // one large step, at a tenth of the cost (OpenCV's two-to-one area
    // resize has a fast path; other ratios do not).
    m_small = m_half;
    while (m_small.cols > small.width || m_small.rows > small.height)
        cv::resize(m_small, m_small, {(m_small.cols + 1) / 2, (m_small.rows + 1) / 2}, 0, 0, cv::INTER_AREA);
    cv::resize(m_halfMask, m_smallMask, m_small.size(), 0, 0, cv::INTER_AREA);
    cv::Mat weight, colour;
    m_smallMask.convertTo(weight, CV_32F, -1.0 / 255.0, 1.0);
    m_small.convertTo(colour, CV_32FC4);
    cv::Mat weight4;
    cv::Mat planes[4] = {weight, weight, weight, weight};
    cv::merge(planes, 4, weight4);
    colour = colour.mul(weight4);
    // The GPU blurs with 9 taps (sigma 2; Strong: sigma 3, twice); the tails
    // it cuts off make its Strong blur about sigma 3.3.
    const double sigma = strong ? 3.3 : 2.0;
    cv::GaussianBlur(colour, colour, cv::Size(), sigma, sigma, cv::BORDER_REPLICATE);
    cv::GaussianBlur(weight4, weight4, cv::Size(), sigma, sigma, cv::BORDER_REPLICATE);
    cv::max(weight4, 0.004, weight4);
    cv::Mat smallBackground;
    cv::divide(colour, weight4, colour);
    colour.convertTo(smallBackground, CV_8UC4);
    cv::resize(smallBackground, m_blurred, rgba.size(), 0, 0, cv::INTER_LINEAR);
    blend(rgba, m_blurred);
}

void CpuBackgroundCompositor::replace(cv::Mat &rgba, const cv::Mat &background)
{
    CV_Assert(background.size() == rgba.size() && background.type() == CV_8UC4);
    computeHalfMask(rgba);
    scaleMask(rgba.size());
    blend(rgba, background);
}

// Most pixels are wholly person or wholly background; only the thin edge
// between them is mixed. (v + 128) * 257 >> 16 is v / 255 rounded for every
// v the products can reach.
void CpuBackgroundCompositor::blend(cv::Mat &rgba, const cv::Mat &background) const
{
    constexpr uint32_t kOpaque = 0xff000000u; // alpha, the fourth byte in memory
    for (int y = 0; y < rgba.rows; ++y) {
        uint8_t *f = rgba.ptr(y);
        const uint8_t *b = background.ptr(y);
        const uint8_t *m = m_mask.ptr(y);
        for (int x = 0; x < rgba.cols; ++x) {
            const uint32_t a = m[x];
            if (a == 255)
                continue;
            if (a == 0) {
                uint32_t pixel;
                std::memcpy(&pixel, b + x * 4, 4);
                pixel |= kOpaque;
                std::memcpy(f + x * 4, &pixel, 4);
                continue;
            }
            for (int k = 0; k < 3; ++k) {
                const uint32_t v = f[x * 4 + k] * a + b[x * 4 + k] * (255u - a) + 128u;
                f[x * 4 + k] = static_cast<uint8_t>((v * 257u) >> 16);
            }
            f[x * 4 + 3] = 255;
        }
    }
}

} // namespace Orb
