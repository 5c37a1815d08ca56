#pragma once

#include <QString>

namespace VCam {

// Picks how Qt Quick draws the window, once at start, before any window
// exists. On a software OpenGL renderer (llvmpipe, softpipe, swrast) the
// scene graph's own software backend is far cheaper: it repaints only what
// changed, while OpenGL redraws the whole scene on the CPU for every frame.
class SceneGraphBackend
{
public:
    // The OpenGL renderer's name, read from a throwaway context ("" without
    // OpenGL).
    static QString openGlRenderer();
    static bool isSoftwareRenderer(const QString &renderer);
    // Chooses and logs the backend. A backend the user set through
    // QT_QUICK_BACKEND is kept; GLINT_QUICK_BACKEND=software or opengl
    // forces one (benchmarks compare both). Returns the chosen backend's name.
    static QString choose();
};

} // namespace VCam
