#pragma once

#include "size.h"

#include <memory>

namespace Orb {

class ImageBase;

// A shared handle to an RGBA8 OpenGL texture; the GL object goes away with
// the last handle. Must be used on the thread owning the GL context.
class Texture
{
public:
    Texture() = default;

    static Texture create(int width, int height);
    // Uploads RGBA, BGRA, RGB or gray pixels (converted to RGBA as needed).
    static Texture fromImage(const ImageBase &image);
    // Replaces the contents; reallocates when the size differs.
    void upload(const ImageBase &image);

    bool isValid() const { return m_handle != nullptr; }
    unsigned id() const;
    Size size() const { return m_size; }
    int width() const { return m_size.width; }
    int height() const { return m_size.height; }

private:
    struct Handle;
    std::shared_ptr<Handle> m_handle;
    Size m_size;
};

} // namespace Orb
