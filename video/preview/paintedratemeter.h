#pragma once

#include <QElapsedTimer>
#include <QObject>

class QQuickWindow;
class QTimer;

namespace VCam {

// Counts what a window's scene graph really put on screen and logs it once a
// second: "Painted <n> frames per second (<m> swaps)", where n counts the
// frame swaps that carried new content (onContentChanged since the last
// swap) and m every swap (animations elsewhere in the window included). The
// application starts one for its preview when GLINT_PREVIEW_STATS is set,
// for the preview benchmark.
class PaintedRateMeter : public QObject
{
    Q_OBJECT
public:
    explicit PaintedRateMeter(QQuickWindow *window);

    static bool isRequested();

public slots:
    void onContentChanged();

private:
    void report();

    int m_swaps = 0;
    int m_painted = 0;
    bool m_changed = false;
    QElapsedTimer m_clock;
    QTimer *m_timer = nullptr;
};

} // namespace VCam
