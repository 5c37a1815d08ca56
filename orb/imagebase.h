#pragma once

#include "size.h"

#include <cstdint>
#include <functional>

namespace Orb {

enum class ColorSpace { RGBA, BGRA, RGB, Gray };

// A picture in memory. It either wraps foreign pixels (the deallocator decides
// what happens to them when the image goes away; doNothingDeallocator leaves
// them alone) or owns a buffer it allocated itself.
class ImageBase
{
public:
    using Deallocator = std::function<void(uint8_t *)>;

    static void doNothingDeallocator(uint8_t *) {}

    ImageBase(uint8_t *data, int width, int height, int bytesPerLine, ColorSpace colorSpace,
              Deallocator deallocator);
    // Allocates a zeroed buffer of the given size, owned by the image.
    ImageBase(int width, int height, ColorSpace colorSpace);
    ~ImageBase();

    ImageBase(const ImageBase &) = delete;
    ImageBase &operator=(const ImageBase &) = delete;

    static int bytesPerPixel(ColorSpace colorSpace);

    Size getSize() const { return {m_width, m_height}; }
    int width() const { return m_width; }
    int height() const { return m_height; }
    int bytesPerLine() const { return m_bytesPerLine; }
    ColorSpace colorSpace() const { return m_colorSpace; }
    uint8_t *data() { return m_data; }
    const uint8_t *data() const { return m_data; }
    const uint8_t *line(int y) const { return m_data + static_cast<size_t>(y) * m_bytesPerLine; }

private:
    uint8_t *m_data = nullptr;
    int m_width = 0;
    int m_height = 0;
    int m_bytesPerLine = 0;
    ColorSpace m_colorSpace = ColorSpace::RGBA;
    Deallocator m_deallocator;
};

} // namespace Orb
