#include <QProcess>
#include <QSignalSpy>
#include <QtTest>
#include <applicationstore.h>
#include <dispatcher.h>
#include <ikeyboardshortcutmanager.h>
#include <metatypes.h>

using namespace VCam;
using nlohmann::json;

namespace {

// The hotkey service keeps the settings section it is given; the real one
// lives above this library.
class RecordingShortcuts : public IKeyboardShortcutManager
{
public:
    json loaded;
    void setShortcut(ShortcutRole, const QKeySequence &) override {}
    void removeShortcut(ShortcutRole) override {}
    QKeySequence shortcut(ShortcutRole) const override { return {}; }
    void setLensShortcut(const LensId &, const QKeySequence &) override {}
    void removeLensShortcut(const LensId &) override {}
    QKeySequence lensShortcut(const LensId &) const override { return {}; }
    bool isAvailable(const QKeySequence &) const override { return true; }
    void loadSettings(const json &shortcuts) override { loaded = shortcuts; }
    json saveSettings() const override { return {{"role_shortcuts", json::array()}}; }
    bool isSystemWide() const override { return true; }
    QString unavailableReason() const override { return {}; }
    QString problem(const QKeySequence &) const override { return {}; }
};

} // namespace

class TestApplicationStore : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<RecordingShortcuts> shortcuts;
    std::shared_ptr<ApplicationStore> store;

    void send(ActionType type, QVariant payload = {})
    {
        store->process(std::make_shared<Bureau::Action>(int(type), payload));
    }
private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        shortcuts = std::make_shared<RecordingShortcuts>();
        store = std::make_shared<ApplicationStore>(dispatcher, shortcuts, nullptr);
        dispatcher->start();
    }

    // Hand-edited sections: numbers count as switches, wrong types and a
    // section that is no object fall back to the defaults.
    void malformedSettingsFallBackAndSavedOnesComeBack()
    {
        store->loadSettings(json{{"mirror_preview", 0}, {"automatic_updates", 2}, {"show_onboarding", "no"}});
        QCOMPARE(store->mirrorPreview(), false);
        QCOMPARE(store->automaticUpdatesEnabled(), true);
        QCOMPARE(store->showOnboarding(), true);
        store->loadSettings(json::array());
        QCOMPARE(store->mirrorPreview(), true);
        QVERIFY(shortcuts->loaded.is_object());

        store->loadSettings(json{{"skip_version", {{"major", 1}, {"minor", 3}}}});
        send(ActionType::SetAlwaysShowGlintcode, false);
        send(ActionType::SetUsageStatisticsEnabled, false);
        const json saved = store->saveSettings();
        QCOMPARE(saved["skip_version"]["minor"], json(3));
        auto other = std::make_shared<ApplicationStore>(dispatcher, nullptr, nullptr);
        other->loadSettings(saved);
        QCOMPARE(other->alwaysShowGlintcode(), false);
        QCOMPARE(other->usageStatisticsEnabled(), false);
        // Without the services their parts of the section come back unchanged.
        QCOMPARE(other->saveSettings(), saved);
    }

    void crashShortcutCrashesTheProcess()
    {
        if (QCoreApplication::arguments().contains("--crash-child")) {
            emit shortcuts->shortcutActivated(ShortcutRole::Crash);
            QFAIL("still alive after the crash shortcut");
        }
        QProcess child;
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QCoreApplication::applicationFilePath(),
                    {"crashShortcutCrashesTheProcess", "--crash-child"});
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY(child.readAll().contains("Crash shortcut activated!"));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    TestApplicationStore test;
    // The crash child takes an extra argument that QtTest must not see.
    QStringList args = app.arguments();
    args.removeAll("--crash-child");
    return QTest::qExec(&test, args);
}
#include "tst_applicationstore.moc"
