#pragma once

// Driving a real program's window on the X display of the test run, as a
// user would: xdotool for keys and clicks, ImageMagick's import for
// screenshots.
#include <QColor>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTest>

namespace XWindowDriver {

// Runs a command and returns what it printed.
inline QString run(const QString &program, const QStringList &args, int timeoutMs = 15000)
{
    QProcess process;
    process.start(program, args);
    process.waitForFinished(timeoutMs);
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

inline QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// Mean colour saturation (0-255) of the lit pixels in the middle of the
// window, where the camera picture is; the dark interface around it is left
// out, so the measure does not depend on the page's layout.
inline double saturation(const QImage &image)
{
    if (image.isNull())
        return -1;
    const QRect area(image.width() * 15 / 100, image.height() * 15 / 100, image.width() * 50 / 100,
                     image.height() * 60 / 100);
    double sum = 0;
    int count = 0;
    for (int y = area.top(); y < area.bottom(); y += 5) {
        for (int x = area.left(); x < area.right(); x += 5) {
            const QColor colour(image.pixel(x, y));
            if (colour.value() < 64)
                continue;
            sum += colour.hsvSaturation();
            ++count;
        }
    }
    return count > 100 ? sum / count : -1;
}

// Waits, with the event loop running, until condition() holds.
template <typename Condition> bool waitFor(Condition condition, int timeoutMs = 15000)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
        if (condition())
            return true;
        QTest::qWait(150);
    }
    return condition();
}

// The window's picture, saved to file.
inline QImage grab(const QString &windowId, const QString &file)
{
    QProcess::execute("import", {"-window", windowId, file});
    return QImage(file);
}

// Gives the window the focus, then runs xdotool with the arguments (keys go
// through the X test extension to the focused window).
inline void inWindow(const QString &windowId, const QStringList &xdotoolArguments)
{
    QProcess::execute("xdotool", {"windowfocus", "--sync", windowId});
    QTest::qWait(100);
    QProcess::execute("xdotool", xdotoolArguments);
}

inline void click(const QString &windowId, int x, int y, int button = 1)
{
    QProcess::execute("xdotool", {"mousemove", "--window", windowId, QString::number(x), QString::number(y),
                                  "click", QString::number(button)});
}

} // namespace XWindowDriver
