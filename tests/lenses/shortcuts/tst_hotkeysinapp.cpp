// The real program with hotkeys from its settings: another X client has the
// focus, xdotool presses the keys, and the program's log shows the camera
// store acting on them.
#include <QTemporaryDir>
#include <QtTest>
#include <programundertest.h>

using namespace XWindowDriver;

class TestHotkeysInApp : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    ProgramUnderTest app{home.path(), "glint-camera-hotkeys-test", GLINT_APP_BINARY};
    QProcess other;

private slots:
    void hotkeysReachTheCameraWhileAnotherProgramHasFocus()
    {
        if (const QString missing = ProgramUnderTest::missingDisplay(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(app.writeSettings(R"({"settings": {"show_onboarding": false, "shortcuts": {
            "role_shortcuts": [{"role": 3, "shortcut": "Ctrl+Alt+E"}, {"role": 2, "shortcut": "Ctrl+Alt+G"}],
            "lenses_shortcuts": []}}})"));
        app.start({"--lens", QStringLiteral(GLINT_LENSES_DIR "/stream-cheers")});
        QVERIFY2(app.logShows("First frame shown", 60000), qPrintable(app.log()));

        other.start("xmessage", {"-name", "glint-hotkeys-other", "-geometry", "+900+50", "another program"});
        QString window;
        QVERIFY(waitFor([&] {
            window = run("xdotool", {"search", "--limit", "1", "--classname", "glint-hotkeys-other"});
            return !window.isEmpty();
        }));
        QProcess::execute("xdotool", {"windowfocus", "--sync", window});

        // The test event: the lens reacts to trigger1, so it gets one.
        QProcess::execute("xdotool", {"key", "--clearmodifiers", "ctrl+alt+e"});
        QVERIFY2(app.logShows("Process external event as trigger1"), qPrintable(app.log()));
        QProcess::execute("xdotool", {"key", "--clearmodifiers", "ctrl+alt+g"});
        QVERIFY(app.logShows("ToggleGlintcode"));
        QVERIFY(!app.log().contains("is taken by another program"));
    }
};

QTEST_MAIN(TestHotkeysInApp)
#include "tst_hotkeysinapp.moc"
