#pragma once

#include <string>

namespace Orb {

// A windowless OpenGL ES 3 context through EGL: surfaceless where the driver
// offers it (Mesa), otherwise on a tiny pbuffer. Owned by one thread.
class GlContext
{
public:
    GlContext() = default;
    ~GlContext();

    GlContext(const GlContext &) = delete;
    GlContext &operator=(const GlContext &) = delete;

    // Creates the context (sharing objects with shareContext, an EGLContext,
    // when not null) and makes it current. Returns false with a reason.
    bool create(std::string &error, void *shareContext = nullptr);
    bool makeCurrent();
    bool isValid() const { return m_context != nullptr; }
    // The GL_RENDERER string, for logs and benchmark reports.
    std::string renderer() const;

private:
    bool chooseDisplay(std::string &error);

    void *m_display = nullptr;
    void *m_context = nullptr;
    void *m_surface = nullptr;
};

} // namespace Orb
