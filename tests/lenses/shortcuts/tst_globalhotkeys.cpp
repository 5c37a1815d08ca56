// Real X11 grabs on the test run's display: another X client (xmessage) has
// the focus, xdotool presses the keys, and the binding fires.
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtTest>
#include <keyboardshortcutmanager.h>
#include <metatypes.h>

using namespace VCam;

namespace {
QKeySequence seq(const char *text)
{
    return QKeySequence::fromString(QString::fromLatin1(text), QKeySequence::PortableText);
}
void press(const QString &keys)
{
    QCOMPARE(QProcess::execute("xdotool", {"key", "--clearmodifiers", keys}), 0);
}
} // namespace

class TestGlobalHotkeys : public QObject
{
    Q_OBJECT
    QProcess m_other;

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
        if (QStandardPaths::findExecutable("xdotool").isEmpty() ||
            QStandardPaths::findExecutable("xmessage").isEmpty())
            QSKIP("needs xdotool and xmessage");
        qunsetenv("WAYLAND_DISPLAY");
        qunsetenv("XDG_SESSION_TYPE");
        // Another program's window, focused, so the keys go to it and only a
        // global grab can bring them to us.
        m_other.start("xmessage", {"-name", "glint-hotkey-focus", "-geometry", "+50+50", "another program"});
        QVERIFY(m_other.waitForStarted());
        QString window;
        for (int i = 0; i < 50 && window.isEmpty(); ++i) {
            QTest::qWait(100);
            QProcess search;
            search.start("xdotool",
                         {"search", "--sync", "--limit", "1", "--classname", "glint-hotkey-focus"});
            search.waitForFinished(5000);
            window = QString::fromLatin1(search.readAllStandardOutput()).trimmed();
        }
        QVERIFY2(!window.isEmpty(), "xmessage window not found");
        QProcess::execute("xdotool", {"windowfocus", "--sync", window});
    }

    void cleanupTestCase()
    {
        m_other.kill();
        m_other.waitForFinished();
    }

    void pressedKeysReachTheirBindingWhileAnotherProgramHasFocus()
    {
        KeyboardShortcutManager manager;
        QVERIFY(manager.isSystemWide());
        QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
        QSignalSpy lenses(&manager, &IKeyboardShortcutManager::lensShortcutActivated);
        manager.setLensShortcut("party-hat", seq("Ctrl+Shift+!")); // bound as Ctrl+Shift+1
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Alt+K"));
        QVERIFY(manager.problem(seq("Ctrl+Shift+1")).isEmpty());

        press("ctrl+shift+1");
        QVERIFY(lenses.wait(5000));
        QCOMPARE(lenses.at(0).at(0).toString(), QString("party-hat"));
        press("ctrl+alt+k");
        QVERIFY(roles.wait(5000));
        QCOMPARE(roles.at(0).at(0).value<ShortcutRole>(), ShortcutRole::ToggleLens);

        // Num Lock and Caps Lock lit: the hotkeys still work.
        press("Num_Lock");
        press("Caps_Lock");
        press("ctrl+shift+1");
        const bool withLocks = lenses.wait(5000);
        press("Num_Lock");
        press("Caps_Lock");
        QVERIFY2(withLocks, "hotkey lost with the lock keys on");
        QCOMPARE(lenses.count(), 2);

        // A key with other modifiers, or a released binding, is not ours.
        press("ctrl+1");
        manager.removeLensShortcut("party-hat");
        press("ctrl+shift+1");
        QTest::qWait(500);
        QCOMPARE(lenses.count(), 2);
    }

    void takenOverBindingMovesTheGrab()
    {
        KeyboardShortcutManager manager;
        QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+2"));
        manager.setShortcut(ShortcutRole::ToggleGlintcode, seq("Ctrl+Shift+@"));
        QVERIFY(manager.shortcut(ShortcutRole::ToggleLens).isEmpty());
        press("ctrl+shift+2");
        QVERIFY(roles.wait(5000));
        QCOMPARE(roles.count(), 1);
        QCOMPARE(roles.at(0).at(0).value<ShortcutRole>(), ShortcutRole::ToggleGlintcode);
    }

    void suspendedWhileRecordingAKey()
    {
        KeyboardShortcutManager manager;
        QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
        manager.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+Alt+T"));
        manager.setSuspended(true);
        // Given back: another client may take the key meanwhile.
        {
            KeyboardShortcutManager other;
            other.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+Alt+T"));
            QVERIFY(other.problem(seq("Ctrl+Alt+T")).isEmpty());
        }
        press("ctrl+alt+t");
        QTest::qWait(300);
        QCOMPARE(roles.count(), 0);
        manager.setSuspended(false);
        press("ctrl+alt+t");
        QVERIFY(roles.wait(5000));
    }

    void keyHeldByAnotherProgramIsReportedAndFreedOnExit()
    {
        auto holder = std::make_unique<KeyboardShortcutManager>(); // an X client of its own
        holder->setShortcut(ShortcutRole::TapEvent, seq("Ctrl+Shift+3"));
        QVERIFY(holder->problem(seq("Ctrl+Shift+3")).isEmpty());

        KeyboardShortcutManager manager;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("is taken by another program"));
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+#"));
        QCOMPARE(manager.problem(seq("Ctrl+Shift+3")), QString("Ctrl+Shift+3 is taken by another program"));
        // The binding is kept, and saved, even though the system refused it.
        QCOMPARE(manager.shortcut(ShortcutRole::ToggleLens), seq("Ctrl+Shift+3"));

        // Once the other program has gone, binding again succeeds: its grabs
        // were all given back.
        holder.reset();
        manager.setShortcut(ShortcutRole::ToggleLens, QKeySequence());
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+3"));
        QVERIFY(manager.problem(seq("Ctrl+Shift+3")).isEmpty());
    }
};

QTEST_MAIN(TestGlobalHotkeys)
#include "tst_globalhotkeys.moc"
