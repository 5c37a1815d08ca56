#pragma once

// The real program on the X display of the test run, with configuration,
// data and cache folders of its own under `home`. It runs under a name of
// the test's own (a link to the binary): one instance runs per program name
// and user, so a Glint Camera the developer runs, or a stale guard left by
// a killed one, cannot keep the test's from starting.
#include <QCoreApplication>
#include <QDir>
#include <xwindowdriver.h>

class ProgramUnderTest
{
public:
    ProgramUnderTest(const QString &home, const QString &name, const QString &binary)
        : m_home(home), m_program(home + "/" + name)
    {
        if (!QFileInfo::exists(m_program))
            QFile::link(binary, m_program);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home + "/config");
        env.insert("XDG_DATA_HOME", home + "/data");
        env.insert("XDG_CACHE_HOME", home + "/cache");
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.remove("WAYLAND_DISPLAY");
        process.setProcessEnvironment(env);
    }
    ~ProgramUnderTest() { kill(); }

    // Why window tests cannot run here, or empty when they can.
    static QString missingDisplay()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            return "needs an X display (the test command runs the suite under xvfb-run)";
        return XWindowDriver::run("xdotool", {"version"}).isEmpty() ? "needs xdotool" : QString();
    }

    QString configDir() const { return m_home + "/config/Glint/Glint Camera"; }
    QString log() const { return XWindowDriver::readFile(configDir() + "/Log.txt"); }
    bool logShows(const QString &text, int timeoutMs = 20000) const
    {
        return XWindowDriver::waitFor([&] { return log().contains(text); }, timeoutMs);
    }
    bool writeSettings(const QByteArray &json) const
    {
        QDir().mkpath(configDir());
        QFile file(configDir() + "/settings.json");
        return file.open(QIODevice::WriteOnly) && file.write(json) == json.size();
    }
    void setEnv(const QString &name, const QString &value)
    {
        QProcessEnvironment env = process.processEnvironment();
        env.insert(name, value);
        process.setProcessEnvironment(env);
    }

    void start(const QStringList &arguments = {}) { process.start(m_program, arguments); }
    // What a failed wait should say: how the program ended and its log.
    QString whyNoWindow() const
    {
        const QString state = process.state() == QProcess::NotRunning
                                  ? QStringLiteral("ended with code %1").arg(process.exitCode())
                                  : QStringLiteral("still running");
        return QStringLiteral("no window; the program %1; its log:\n%2").arg(state, log());
    }
    // The id of the program's first visible window, or empty after the timeout.
    QString waitForWindow(int timeoutMs = 30000)
    {
        QString window;
        XWindowDriver::waitFor(
            [&] {
                if (process.state() == QProcess::NotRunning)
                    return true;
                window = XWindowDriver::run("xdotool", {"search", "--onlyvisible", "--pid",
                                                        QString::number(process.processId())})
                             .section('\n', 0, 0);
                return !window.isEmpty();
            },
            timeoutMs);
        return window;
    }
    // Quits with Ctrl+Q in the window; true when the program ended cleanly.
    bool quit(const QString &window)
    {
        XWindowDriver::inWindow(window, {"key", "--clearmodifiers", "ctrl+q"});
        return process.waitForFinished(20000) && process.exitStatus() == QProcess::NormalExit &&
               process.exitCode() == 0;
    }
    void kill()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    QProcess process;

private:
    QString m_home;
    QString m_program;
};
