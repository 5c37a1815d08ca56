#include "glcontext.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
#include <cstring>

namespace Orb {

namespace {
bool hasExtension(const char *list, const char *name)
{
    return list && std::strstr(list, name) != nullptr;
}
} // namespace

GlContext::~GlContext()
{
    if (!m_display)
        return;
    eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (m_surface)
        eglDestroySurface(m_display, m_surface);
    if (m_context)
        eglDestroyContext(m_display, m_context);
    // The display is shared by every context of the process; leave it
    // initialized, as terminating it would pull the rug from under others.
}

bool GlContext::chooseDisplay(std::string &error)
{
    const char *clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay && hasExtension(clientExtensions, "EGL_MESA_platform_surfaceless"))
        m_display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (!m_display)
        m_display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (!m_display || !eglInitialize(m_display, nullptr, nullptr)) {
        error = "EGL display could not be initialized (error " + std::to_string(eglGetError()) + ")";
        m_display = nullptr;
        return false;
    }
    return true;
}

bool GlContext::create(std::string &error, void *shareContext)
{
    if (!chooseDisplay(error))
        return false;
    // Surfaceless Mesa only offers configs that also support pbuffers.
    const EGLint configAttribs[] = {EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT,
                                    EGL_RENDERABLE_TYPE,
                                    EGL_OPENGL_ES3_BIT,
                                    EGL_RED_SIZE,
                                    8,
                                    EGL_GREEN_SIZE,
                                    8,
                                    EGL_BLUE_SIZE,
                                    8,
                                    EGL_ALPHA_SIZE,
                                    8,
                                    EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    if (!eglChooseConfig(m_display, configAttribs, &config, 1, &count) || count < 1) {
        error = "no EGL config for OpenGL ES 3 with pbuffer support";
        return false;
    }
    if (!eglBindAPI(EGL_OPENGL_ES_API)) {
        error = "EGL could not bind the OpenGL ES API";
        return false;
    }
    const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 0, EGL_NONE};
    m_context =
        eglCreateContext(m_display, config, shareContext ? shareContext : EGL_NO_CONTEXT, contextAttribs);
    if (!m_context) {
        error = "EGL could not create an OpenGL ES 3 context (error " + std::to_string(eglGetError()) + ")";
        return false;
    }
    if (!hasExtension(eglQueryString(m_display, EGL_EXTENSIONS), "EGL_KHR_surfaceless_context")) {
        const EGLint pbufferAttribs[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
        m_surface = eglCreatePbufferSurface(m_display, config, pbufferAttribs);
    }
    if (!makeCurrent()) {
        error = "eglMakeCurrent failed (error " + std::to_string(eglGetError()) + ")";
        return false;
    }
    return true;
}

bool GlContext::makeCurrent()
{
    if (!m_context)
        return false;
    if (eglGetCurrentContext() == m_context)
        return true;
    EGLSurface surface = m_surface ? m_surface : EGL_NO_SURFACE;
    return eglMakeCurrent(m_display, surface, surface, m_context) == EGL_TRUE;
}

std::string GlContext::renderer() const
{
    const GLubyte *name = glGetString(GL_RENDERER);
    return name ? reinterpret_cast<const char *>(name) : "unknown";
}

} // namespace Orb
