#pragma once

// Driving a real program's window on the X display of the test run, as a
// user would: xdotool for keys and clicks, ImageMagick's import for
// screenshots.
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
