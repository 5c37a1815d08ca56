#pragma once

#include <cstdint>
#include <vector>

namespace Sink {

// Converts RGB888 (bytes red, green, blue) to packed YUYV with BT.601
// limited-range coefficients, the format webcams and video-call programs
// expect. Works in strips of rows so the intermediate stays in cache.
class FrameConverter
{
public:
    FrameConverter(int width, int height);

    void rgbToYuyv(const uint8_t *rgb, uint8_t *yuyv);

private:
    int m_width;
    int m_height;
    std::vector<uint8_t> m_argbStrip;
};

} // namespace Sink
