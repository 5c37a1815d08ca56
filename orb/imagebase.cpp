#include "imagebase.h"

namespace Orb {

ImageBase::ImageBase(uint8_t *data, int width, int height, int bytesPerLine, ColorSpace colorSpace,
                     Deallocator deallocator)
    : m_data(data), m_width(width), m_height(height), m_bytesPerLine(bytesPerLine), m_colorSpace(colorSpace),
      m_deallocator(std::move(deallocator))
{}

ImageBase::ImageBase(int width, int height, ColorSpace colorSpace)
    : m_width(width), m_height(height), m_bytesPerLine(width * bytesPerPixel(colorSpace)),
      m_colorSpace(colorSpace)
{
    m_data = new uint8_t[static_cast<size_t>(m_bytesPerLine) * height]();
    m_deallocator = [](uint8_t *p) { delete[] p; };
}

ImageBase::~ImageBase()
{
    if (m_deallocator)
        m_deallocator(m_data);
}

int ImageBase::bytesPerPixel(ColorSpace colorSpace)
{
    switch (colorSpace) {
    case ColorSpace::RGBA:
    case ColorSpace::BGRA:
        return 4;
    case ColorSpace::RGB:
        return 3;
    case ColorSpace::Gray:
        return 1;
    }
    return 4;
}

} // namespace Orb
