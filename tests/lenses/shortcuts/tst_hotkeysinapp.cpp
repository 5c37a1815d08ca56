// The real program with hotkeys from its settings: another X client has the
// focus, xdotool presses the keys, and the program's log shows the camera
// store acting on them.
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <xwindowdriver.h>

using namespace XWindowDriver;

class TestHotkeysInApp : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    QProcess app;
    QProcess other;
    QString config() const { return home.filePath("config/Glint/Glint Camera"); }
    QString log() const { return readFile(config() + "/Log.txt"); }

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
        if (run("xdotool", {"version"}).isEmpty() || run("which", {"xmessage"}).isEmpty())
            QSKIP("needs xdotool and xmessage");
        QVERIFY(QDir().mkpath(config()));
        QFile settings(config() + "/settings.json");
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(R"({"settings": {"show_onboarding": false, "shortcuts": {
            "role_shortcuts": [{"role": 3, "shortcut": "Ctrl+Alt+E"}, {"role": 2, "shortcut": "Ctrl+Alt+G"}],
            "lenses_shortcuts": []}}})");
        settings.close();

        // A name of its own: one instance runs per program name.
        const QString program = home.filePath(QStringLiteral("glint-camera-hotkeys-test"));
        QVERIFY(QFile::link(QStringLiteral(GLINT_APP_BINARY), program));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.remove("WAYLAND_DISPLAY");
        app.setProcessEnvironment(env);
        app.start(program, {"--lens", QStringLiteral(GLINT_LENSES_DIR "/stream-cheers")});
        QVERIFY(app.waitForStarted());
        QVERIFY2(waitFor([&] { return log().contains("First frame shown"); }, 60000), qPrintable(log()));
        QVERIFY(waitFor([&] { return log().contains("SetCoreProcessingLens"); }));
    }

    void cleanupTestCase()
    {
        other.kill();
        other.waitForFinished();
        if (app.state() != QProcess::NotRunning) {
            app.terminate();
            if (!app.waitForFinished(15000))
                app.kill();
        }
    }

    void hotkeysReachTheCameraWhileAnotherProgramHasFocus()
    {
        other.start("xmessage", {"-name", "glint-hotkeys-other", "-geometry", "+900+50", "another program"});
        QVERIFY(other.waitForStarted());
        QString window;
        QVERIFY(waitFor([&] {
            window = run("xdotool", {"search", "--limit", "1", "--classname", "glint-hotkeys-other"});
            return !window.isEmpty();
        }));
        QProcess::execute("xdotool", {"windowfocus", "--sync", window});
        QCOMPARE(run("xdotool", {"getwindowfocus"}), window);

        // The test event: the lens reacts to trigger1, so it gets one.
        QProcess::execute("xdotool", {"key", "--clearmodifiers", "ctrl+alt+e"});
        QVERIFY2(waitFor([&] { return log().contains("Process external event as trigger1"); }),
                 qPrintable(log()));
        QProcess::execute("xdotool", {"key", "--clearmodifiers", "ctrl+alt+g"});
        QVERIFY(waitFor([&] { return log().contains("ToggleGlintcode"); }));
        QVERIFY(!log().contains("is taken by another program"));
    }

    void bindingsAreSavedOnExit()
    {
        app.terminate(); // the program shuts down in order on SIGTERM
        QVERIFY(app.waitForFinished(20000));
        const QString saved = readFile(config() + "/settings.json");
        QVERIFY2(saved.contains("\"Ctrl+Alt+E\"") && saved.contains("\"Ctrl+Alt+G\""), qPrintable(saved));
    }
};

QTEST_MAIN(TestHotkeysInApp)
#include "tst_hotkeysinapp.moc"
