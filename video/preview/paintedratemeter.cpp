#include "paintedratemeter.h"

#include <QLoggingCategory>
#include <QQuickWindow>
#include <QTimer>

namespace VCam {

Q_DECLARE_LOGGING_CATEGORY(lcPreview)

PaintedRateMeter::PaintedRateMeter(QQuickWindow *window) : QObject(window), m_timer(new QTimer(this))
{
    // frameSwapped comes from the render thread on the threaded loop.
    connect(
        window, &QQuickWindow::frameSwapped, this,
        [this] {
            ++m_swaps;
            m_painted += m_changed;
            m_changed = false;
        },
        Qt::QueuedConnection);
    connect(m_timer, &QTimer::timeout, this, &PaintedRateMeter::report);
    m_timer->start(1000);
    m_clock.start();
}

void PaintedRateMeter::onContentChanged()
{
    m_changed = true;
}

bool PaintedRateMeter::isRequested()
{
    return !qEnvironmentVariableIsEmpty("GLINT_PREVIEW_STATS");
}

void PaintedRateMeter::report()
{
    const double seconds = m_clock.restart() / 1000.0;
    qCInfo(lcPreview).noquote() << QStringLiteral("Painted %1 frames per second (%2 swaps)")
                                       .arg(m_painted / seconds, 0, 'f', 1)
                                       .arg(m_swaps / seconds, 0, 'f', 1);
    m_swaps = 0;
    m_painted = 0;
}

} // namespace VCam
