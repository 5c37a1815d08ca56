// Hotkeys on the test run's display: normalisation, bindings and their
// settings, and real X11 grabs: another X client (xmessage) has the focus,
// xdotool presses the keys, and the binding fires.
#include <QSignalSpy>
#include <QtTest>
#include <keyboardshortcutmanager.h>
#include <keysequences.h>
#include <metatypes.h>
#include <xwindowdriver.h>

using namespace VCam;
using nlohmann::json;

namespace {
QKeySequence seq(const char *text)
{
    return QKeySequence::fromString(QString::fromLatin1(text), QKeySequence::PortableText);
}
QString text(const QKeySequence &sequence)
{
    return sequence.toString(QKeySequence::PortableText);
}
void press(const QString &keys)
{
    QCOMPARE(
        QProcess::execute("xdotool", QStringList{"key", "--clearmodifiers"} + keys.split(QLatin1Char(' '))),
        0);
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
        if (qEnvironmentVariableIsEmpty("DISPLAY") ||
            XWindowDriver::run("which", {"xdotool", "xmessage"}).count('\n') != 1)
            QSKIP(
                "needs an X display (the test command runs the suite under xvfb-run), xdotool and xmessage");
        qunsetenv("WAYLAND_DISPLAY");
        qunsetenv("XDG_SESSION_TYPE");
        // Another program's window, focused, so the keys go to it and only a
        // global grab can bring them to us.
        m_other.start("xmessage", {"-name", "glint-hotkey-focus", "-geometry", "+50+50", "another program"});
        QVERIFY(m_other.waitForStarted());
        QString window;
        QVERIFY2(XWindowDriver::waitFor([&] {
                     window = XWindowDriver::run(
                         "xdotool", {"search", "--limit", "1", "--classname", "glint-hotkey-focus"});
                     return !window.isEmpty();
                 }),
                 "xmessage window not found");
        QProcess::execute("xdotool", {"windowfocus", "--sync", window});
    }

    void pressedKeysReachTheirBindingWhileAnotherProgramHasFocus()
    {
        KeyboardShortcutManager manager;
        QVERIFY(manager.isSystemWide());
        QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
        QSignalSpy lenses(&manager, &IKeyboardShortcutManager::lensShortcutActivated);
        manager.setLensShortcut("party-hat", seq("Ctrl+Shift+!")); // bound as Ctrl+Shift+1
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Alt+K"));

        press("ctrl+shift+1");
        QVERIFY(lenses.wait(5000));
        QCOMPARE(lenses.at(0).at(0).toString(), QString("party-hat"));
        press("ctrl+alt+k");
        QVERIFY(roles.wait(5000));
        QCOMPARE(roles.at(0).at(0).value<ShortcutRole>(), ShortcutRole::ToggleLens);

        // Num Lock and Caps Lock lit: the hotkeys still work.
        press("Num_Lock Caps_Lock ctrl+shift+1");
        const bool withLocks = lenses.wait(5000);
        press("Num_Lock Caps_Lock");
        QVERIFY2(withLocks, "hotkey lost with the lock keys on");
        QCOMPARE(lenses.count(), 2);

        // A key with other modifiers, or a released binding, is not ours.
        press("ctrl+1");
        manager.removeLensShortcut("party-hat");
        press("ctrl+shift+1");
        QTest::qWait(500);
        QCOMPARE(lenses.count(), 2);
    }

    // Shifted symbols become the key under them; anything else stays.
    void normalisation()
    {
        // Each case: what was typed > what is bound.
        const QStringList cases =
            QString("Ctrl+Shift+@>Ctrl+Shift+2 Ctrl+Shift+!>Ctrl+Shift+1 Alt+Shift+(>Alt+Shift+9 "
                    "Ctrl+_>Ctrl+- Ctrl++>Ctrl+= +>= Ctrl+Shift+A>Ctrl+Shift+A Meta+F5>Meta+F5 >")
                .split(' ');
        for (const QString &pair : cases) {
            const QString bound = pair.section('>', 1);
            const QKeySequence once = KeySequences::normalized(
                QKeySequence::fromString(pair.section('>', 0, 0), QKeySequence::PortableText));
            QCOMPARE(text(once), bound);
            QCOMPARE(text(KeySequences::normalized(once)), bound); // twice changes nothing more
        }
    }

    // A sequence has one owner, compared as bound whichever way it is typed;
    // the bindings survive the settings file.
    void bindingsTakeOverAndRoundTrip()
    {
        json saved;
        {
            KeyboardShortcutManager manager;
            QSignalSpy takenOver(&manager, &IKeyboardShortcutManager::shortcutTakenOver);
            QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
            manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+1"));
            manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+1")); // same again: nothing moves
            QVERIFY(!manager.isAvailable(seq("Ctrl+Shift+!")));
            manager.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+Shift+!"));
            QVERIFY(manager.shortcut(ShortcutRole::ToggleLens).isEmpty());
            press("ctrl+shift+1"); // the grab moved with the binding
            QVERIFY(roles.wait(5000));
            QCOMPARE(roles.count(), 1);
            QCOMPARE(roles.at(0).at(0).value<ShortcutRole>(), ShortcutRole::TapEvent);
            // A lens takes it from the role, and a role takes it back.
            manager.setLensShortcut("confetti", seq("Ctrl+Shift+1"));
            QVERIFY(manager.shortcut(ShortcutRole::TapEvent).isEmpty());
            manager.setShortcut(ShortcutRole::ExternalEvent, seq("Ctrl+Shift+1"));
            QVERIFY(manager.lensShortcut("confetti").isEmpty());
            QCOMPARE(takenOver.count(), 3);
            manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Alt+L"));
            manager.setLensShortcut("party-hat", seq("Meta+F7"));
            manager.setLensShortcut("sunglasses", seq("Ctrl++"));
            saved = json::parse(manager.saveSettings().dump());
        }
        KeyboardShortcutManager manager;
        manager.loadSettings(saved);
        QCOMPARE(text(manager.shortcut(ShortcutRole::ToggleLens)), QString("Ctrl+Alt+L"));
        QCOMPARE(text(manager.shortcut(ShortcutRole::ExternalEvent)), QString("Ctrl+Shift+1"));
        QCOMPARE(text(manager.lensShortcut("party-hat")), QString("Meta+F7"));
        QCOMPARE(text(manager.lensShortcut("sunglasses")), QString("Ctrl+="));
        QVERIFY(manager.lensShortcut("confetti").isEmpty());
        QCOMPARE(manager.saveSettings(), saved);
    }

    // A malformed section is a format error as a whole: nothing of it is
    // bound, not even a good element before the bad one.
    void malformedSettingsBindNothing()
    {
        const json nothing{{"role_shortcuts", json::array()}, {"lenses_shortcuts", json::array()}};
        for (const char *section :
             {R"({"role_shortcuts": [{"role": "1", "shortcut": "Ctrl+A"}]})",
              R"({"role_shortcuts": [{"role": 99, "shortcut": "Ctrl+A"}]})",
              R"({"role_shortcuts": {"role": 1, "shortcut": "Ctrl+A"}})",
              R"({"lenses_shortcuts": [{"lens_id": "confetti", "shortcut": "Ctrl+C"}, {"lens_id": 5}]})",
              R"({"lenses_shortcuts": [{"lens_id": "confetti", "shortcut": "Ctrl+C"}, "Ctrl+A"]})"}) {
            KeyboardShortcutManager manager;
            manager.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+T"));
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Shortcut settings couldn't be loaded"));
            manager.loadSettings(json::parse(section));
            QVERIFY2(manager.saveSettings() == nothing, section);
        }
    }
};

QTEST_MAIN(TestGlobalHotkeys)
#include "tst_globalhotkeys.moc"
