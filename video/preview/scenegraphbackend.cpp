#include "scenegraphbackend.h"

#include <QLoggingCategory>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QQuickWindow>
#include <QSGRendererInterface>

namespace VCam {

Q_LOGGING_CATEGORY(lcPreview, "glint.video.preview")

QString SceneGraphBackend::openGlRenderer()
{
    QOpenGLContext context;
    if (!context.create())
        return {};
    QOffscreenSurface surface;
    surface.setFormat(context.format());
    surface.create();
    if (!context.makeCurrent(&surface))
        return {};
    const auto *name = reinterpret_cast<const char *>(context.functions()->glGetString(GL_RENDERER));
    const QString renderer = name ? QString::fromLatin1(name) : QString();
    context.doneCurrent();
    return renderer;
}

bool SceneGraphBackend::isSoftwareRenderer(const QString &renderer)
{
    for (const char *software : {"llvmpipe", "softpipe", "swrast"}) {
        if (renderer.contains(QLatin1String(software), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

QString SceneGraphBackend::choose()
{
    // A window asked to repaint waits 5 ms by default before it paints: a
    // third of a frame's time at 60 fps, more than half at 120, enough for
    // the next camera frame to arrive first and the one before to be
    // skipped. Animations are paced by their own timer, so painting at once
    // does not spin.
    if (!qEnvironmentVariableIsSet("QT_QPA_UPDATE_IDLE_TIME"))
        qputenv("QT_QPA_UPDATE_IDLE_TIME", "0");
    const QString fromUser = qEnvironmentVariable("QT_QUICK_BACKEND");
    if (!fromUser.isEmpty()) {
        qCInfo(lcPreview).noquote() << "Qt Quick backend:" << fromUser << "(set by QT_QUICK_BACKEND)";
        return fromUser;
    }
    const QString forced = qEnvironmentVariable("GLINT_QUICK_BACKEND");
    if (forced == QLatin1String("software") || forced == QLatin1String("opengl")) {
        QQuickWindow::setSceneGraphBackend(forced == QLatin1String("software")
                                               ? QSGRendererInterface::Software
                                               : QSGRendererInterface::OpenGL);
        qCInfo(lcPreview).noquote() << "Qt Quick backend:" << forced << "(set by GLINT_QUICK_BACKEND)";
        return forced;
    }
    const QString renderer = openGlRenderer();
    const bool software = renderer.isEmpty() || isSoftwareRenderer(renderer);
    if (software)
        QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
    const QString chosen = software ? QStringLiteral("software") : QStringLiteral("opengl");
    qCInfo(lcPreview).noquote() << QStringLiteral("Qt Quick backend: %1 (OpenGL renderer \"%2\")")
                                       .arg(chosen, renderer.isEmpty() ? QStringLiteral("none") : renderer);
    return chosen;
}

} // namespace VCam
