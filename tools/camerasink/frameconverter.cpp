#include "frameconverter.h"

#include <algorithm>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>

namespace Sink {

namespace {
constexpr int kStripRows = 16;
}

FrameConverter::FrameConverter(int width, int height)
    : m_width(width), m_height(height), m_argbStrip(std::size_t(width) * 4 * kStripRows)
{}

void FrameConverter::rgbToYuyv(const uint8_t *rgb, uint8_t *yuyv)
{
    const int rgbStride = m_width * 3;
    const int argbStride = m_width * 4;
    const int yuyvStride = m_width * 2;
    for (int row = 0; row < m_height; row += kStripRows) {
        const int rows = std::min(kStripRows, m_height - row);
        // libyuv names byte order R,G,B "RAW" and its "ARGB" is B,G,R,A in memory.
        libyuv::RAWToARGB(rgb + std::size_t(row) * rgbStride, rgbStride, m_argbStrip.data(), argbStride,
                          m_width, rows);
        libyuv::ARGBToYUY2(m_argbStrip.data(), argbStride, yuyv + std::size_t(row) * yuyvStride, yuyvStride,
                           m_width, rows);
    }
}

} // namespace Sink
