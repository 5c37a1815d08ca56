// Bindings without a display: what is stored, what is taken over, what the
// settings hold, and the in-window fallback where the session has no
// system-wide hotkeys.
#include <QKeyEvent>
#include <QSignalSpy>
#include <QtTest>
#include <keyboardshortcutmanager.h>
#include <keysequences.h>
#include <metatypes.h>

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
} // namespace

class TestKeyboardShortcuts : public QObject
{
    Q_OBJECT
    QByteArray m_display;

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        // A session without X11: every binding is kept, none is grabbed.
        m_display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
        qputenv("WAYLAND_DISPLAY", "wayland-test");
    }
    void cleanupTestCase()
    {
        qputenv("DISPLAY", m_display);
        qunsetenv("WAYLAND_DISPLAY");
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

    void newBindingTakesTheSequenceOver()
    {
        KeyboardShortcutManager manager;
        QSignalSpy takenOver(&manager, &IKeyboardShortcutManager::shortcutTakenOver);
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+1"));
        manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Shift+1")); // same again: nothing moves
        QCOMPARE(takenOver.count(), 0);
        // Compared as bound, whichever way it is typed.
        QVERIFY(!manager.isAvailable(seq("Ctrl+Shift+!")));
        QVERIFY(manager.isAvailable(seq("Ctrl+Shift+3")));

        // A second role, typed with the shifted key, takes it.
        manager.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+Shift+!"));
        QVERIFY(manager.shortcut(ShortcutRole::ToggleLens).isEmpty());
        QCOMPARE(text(manager.shortcut(ShortcutRole::TapEvent)), QString("Ctrl+Shift+1"));
        QCOMPARE(takenOver.count(), 1);
        QCOMPARE(takenOver.at(0).at(1).toString(), QString("Lens on and off"));

        // A lens takes it from the role, and a role takes it back.
        manager.setLensShortcut("confetti", seq("Ctrl+Shift+1"));
        QVERIFY(manager.shortcut(ShortcutRole::TapEvent).isEmpty());
        manager.setShortcut(ShortcutRole::ExternalEvent, seq("Ctrl+Shift+1"));
        QVERIFY(manager.lensShortcut("confetti").isEmpty());
        QCOMPARE(takenOver.count(), 3);
        QCOMPARE(takenOver.at(2).at(1).toString(), QString("the lens confetti"));

        const json saved = manager.saveSettings();
        QCOMPARE(saved["role_shortcuts"].size(), size_t(1));
        QCOMPARE(saved["lenses_shortcuts"].size(), size_t(0));
        manager.removeShortcut(ShortcutRole::ExternalEvent);
        QVERIFY(manager.isAvailable(seq("Ctrl+Shift+1")));
    }

    void settingsRoundTrip()
    {
        json saved;
        {
            KeyboardShortcutManager manager;
            manager.setShortcut(ShortcutRole::ToggleLens, seq("Ctrl+Alt+L"));
            manager.setShortcut(ShortcutRole::ExternalEvent, seq("Ctrl+Shift+#"));
            manager.setLensShortcut("party-hat", seq("Meta+F7"));
            manager.setLensShortcut("sunglasses", seq("Ctrl++"));
            saved = manager.saveSettings();
        }
        // Written as text through a real file's worth of JSON.
        const json reread = json::parse(saved.dump());
        KeyboardShortcutManager manager;
        manager.loadSettings(reread);
        QCOMPARE(text(manager.shortcut(ShortcutRole::ToggleLens)), QString("Ctrl+Alt+L"));
        QCOMPARE(text(manager.shortcut(ShortcutRole::ExternalEvent)), QString("Ctrl+Shift+3"));
        QCOMPARE(text(manager.lensShortcut("party-hat")), QString("Meta+F7"));
        QCOMPARE(text(manager.lensShortcut("sunglasses")), QString("Ctrl+="));
        QCOMPARE(manager.saveSettings(), saved);
        QCOMPARE(reread["role_shortcuts"][0], json({{"role", 1}, {"shortcut", "Ctrl+Alt+L"}}));
    }

    void malformedSettingsBindNothing_data()
    {
        QTest::addColumn<QString>("section");
        QTest::newRow("role as text")
            << "{\"role_shortcuts\": [{\"role\": \"1\", \"shortcut\": \"Ctrl+A\"}]}";
        QTest::newRow("unknown role") << "{\"role_shortcuts\": [{\"role\": 99, \"shortcut\": \"Ctrl+A\"}]}";
        QTest::newRow("no shortcut") << "{\"role_shortcuts\": [{\"role\": 1}]}";
        QTest::newRow("lens id number")
            << "{\"lenses_shortcuts\": [{\"lens_id\": 5, \"shortcut\": \"Ctrl+A\"}]}";
        QTest::newRow("not an array") << "{\"role_shortcuts\": {\"role\": 1, \"shortcut\": \"Ctrl+A\"}}";
        QTest::newRow("element not object") << "{\"lenses_shortcuts\": [\"Ctrl+A\"]}";
    }
    void malformedSettingsBindNothing()
    {
        QFETCH(QString, section);
        KeyboardShortcutManager manager;
        manager.setShortcut(ShortcutRole::TapEvent, seq("Ctrl+T"));
        // The good element before the bad one is not bound either: the
        // whole section is a format error.
        json settings = json::parse(section.toStdString());
        if (settings.contains("lenses_shortcuts") && settings["lenses_shortcuts"].is_array())
            settings["lenses_shortcuts"].insert(settings["lenses_shortcuts"].begin(),
                                                json{{"lens_id", "confetti"}, {"shortcut", "Ctrl+C"}});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Shortcut settings couldn't be loaded"));
        manager.loadSettings(settings);
        QCOMPARE(manager.saveSettings(),
                 json({{"role_shortcuts", json::array()}, {"lenses_shortcuts", json::array()}}));
    }

    void withoutSystemWideHotkeysTheWindowStillHasThem()
    {
        KeyboardShortcutManager manager;
        QVERIFY(!manager.isSystemWide());
        QVERIFY(manager.unavailableReason().contains("Wayland"));
        QSignalSpy roles(&manager, &IKeyboardShortcutManager::shortcutActivated);
        QSignalSpy lenses(&manager, &IKeyboardShortcutManager::lensShortcutActivated);
        manager.setShortcut(ShortcutRole::ToggleGlintcode, seq("Ctrl+Shift+!"));
        manager.setLensShortcut("confetti", seq("F9"));
        QVERIFY(manager.problem(seq("Ctrl+Shift+1")).isEmpty()); // the page says it once for all

        QObject window;
        window.installEventFilter(&manager);
        // Shift+1 arrives as "!" from the keyboard; it is the bound key.
        QKeyEvent bang(QEvent::KeyPress, Qt::Key_Exclam, Qt::ControlModifier | Qt::ShiftModifier, "!");
        QVERIFY(manager.eventFilter(&window, &bang));
        QCOMPARE(roles.count(), 1);
        QCOMPARE(roles.at(0).at(0).value<ShortcutRole>(), ShortcutRole::ToggleGlintcode);
        QKeyEvent f9(QEvent::KeyPress, Qt::Key_F9, Qt::NoModifier);
        QVERIFY(manager.eventFilter(&window, &f9));
        QCOMPARE(lenses.count(), 1);
        QCOMPARE(lenses.at(0).at(0).toString(), QString("confetti"));
        QKeyEvent other(QEvent::KeyPress, Qt::Key_F10, Qt::NoModifier);
        QVERIFY(!manager.eventFilter(&window, &other));
        QKeyEvent repeat(QEvent::KeyPress, Qt::Key_F9, Qt::NoModifier, QString(), true);
        QVERIFY(!manager.eventFilter(&window, &repeat));
        QCOMPARE(lenses.count(), 1);
    }
};

QTEST_MAIN(TestKeyboardShortcuts)
#include "tst_keyboardshortcuts.moc"
