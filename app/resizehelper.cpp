#include "resizehelper.h"

#include <QGuiApplication>
#include <QScreen>

namespace VCam {

QSize ResizeHelper::preferredSize() const
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    const QSize available = screen ? screen->availableSize() : QSize(1920, 1080);
    return fit({1280, 800}, available, minimumSize());
}

QSize ResizeHelper::fit(const QSize &wanted, const QSize &available, const QSize &minimum)
{
    // Leave a margin of a tenth of the screen, never going below the minimum.
    const QSize room(available.width() * 9 / 10, available.height() * 9 / 10);
    return wanted.boundedTo(room).expandedTo(minimum);
}

} // namespace VCam
