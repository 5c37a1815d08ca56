#pragma once

#include <QElapsedTimer>
#include <QObject>

class QQuickWindow;
class QTimer;

namespace VCam {

// Counts the frames a window's scene graph really put on screen (its frame
// swaps) and logs the rate once a second: "Painted <n> frames per second".
// The application starts one when GLINT_PREVIEW_STATS is set, for the
// preview benchmark.
class PaintedRateMeter : public QObject
{
    Q_OBJECT
public:
    explicit PaintedRateMeter(QQuickWindow *window);

    static bool isRequested();

private:
    void report();

    int m_swaps = 0;
    QElapsedTimer m_clock;
    QTimer *m_timer = nullptr;
};

} // namespace VCam
