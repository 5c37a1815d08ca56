#include "texture.h"

#include "imagebase.h"

#include <GLES3/gl3.h>
#include <vector>

namespace Orb {

struct Texture::Handle
{
    GLuint id = 0;
    ~Handle() { glDeleteTextures(1, &id); }
};

namespace {
void setNearestClamp()
{
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

// Converts any supported layout to tightly packed RGBA rows.
const uint8_t *rgbaPixels(const ImageBase &image, std::vector<uint8_t> &scratch)
{
    const int w = image.width();
    if (image.colorSpace() == ColorSpace::RGBA && image.bytesPerLine() == w * 4)
        return image.data();
    scratch.resize(static_cast<size_t>(w) * image.height() * 4);
    for (int y = 0; y < image.height(); ++y) {
        const uint8_t *src = image.line(y);
        uint8_t *dst = scratch.data() + static_cast<size_t>(y) * w * 4;
        for (int x = 0; x < w; ++x, dst += 4) {
            switch (image.colorSpace()) {
            case ColorSpace::RGBA:
                dst[0] = src[x * 4], dst[1] = src[x * 4 + 1], dst[2] = src[x * 4 + 2],
                dst[3] = src[x * 4 + 3];
                break;
            case ColorSpace::BGRA:
                dst[0] = src[x * 4 + 2], dst[1] = src[x * 4 + 1], dst[2] = src[x * 4],
                dst[3] = src[x * 4 + 3];
                break;
            case ColorSpace::RGB:
                dst[0] = src[x * 3], dst[1] = src[x * 3 + 1], dst[2] = src[x * 3 + 2], dst[3] = 255;
                break;
            case ColorSpace::Gray:
                dst[0] = dst[1] = dst[2] = src[x], dst[3] = 255;
                break;
            }
        }
    }
    return scratch.data();
}
} // namespace

Texture Texture::create(int width, int height)
{
    Texture t;
    t.m_handle = std::make_shared<Handle>();
    t.m_size = {width, height};
    glGenTextures(1, &t.m_handle->id);
    glBindTexture(GL_TEXTURE_2D, t.m_handle->id);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    setNearestClamp();
    return t;
}

Texture Texture::fromImage(const ImageBase &image)
{
    Texture t = create(image.width(), image.height());
    t.upload(image);
    return t;
}

void Texture::upload(const ImageBase &image)
{
    if (!isValid() || m_size != image.getSize())
        *this = create(image.width(), image.height());
    std::vector<uint8_t> scratch;
    const uint8_t *pixels = rgbaPixels(image, scratch);
    glBindTexture(GL_TEXTURE_2D, m_handle->id);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.width(), image.height(), GL_RGBA, GL_UNSIGNED_BYTE, pixels);
}

unsigned Texture::id() const
{
    return m_handle ? m_handle->id : 0;
}

} // namespace Orb
