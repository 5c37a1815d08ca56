#include <QProcess>
#include <QSignalSpy>
#include <QtTest>
#include <applicationstore.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <globalshortcut.h>
#include <ikeyboardshortcutmanager.h>
#include <iupdateservice.h>
#include <lenscommand.h>
#include <metatypes.h>

using namespace VCam;
using nlohmann::json;

namespace {

// Records what the store asks of the hotkey service.
class RecordingShortcuts : public IKeyboardShortcutManager
{
public:
    QMap<int, QKeySequence> roles;
    QMap<QString, QKeySequence> lenses;
    json loaded;

    void setShortcut(ShortcutRole role, const QKeySequence &s) override { roles[int(role)] = s; }
    void removeShortcut(ShortcutRole role) override { roles.remove(int(role)); }
    QKeySequence shortcut(ShortcutRole role) const override { return roles.value(int(role)); }
    void setLensShortcut(const LensId &id, const QKeySequence &s) override { lenses[id] = s; }
    void removeLensShortcut(const LensId &id) override { lenses.remove(id); }
    QKeySequence lensShortcut(const LensId &id) const override { return lenses.value(id); }
    bool isAvailable(const QKeySequence &s) const override
    {
        return !roles.values().contains(s) && !lenses.values().contains(s);
    }
    void loadSettings(const json &shortcuts) override { loaded = shortcuts; }
    json saveSettings() const override { return {{"role_shortcuts", json::array()}}; }
    bool isSystemWide() const override { return true; }
    QString unavailableReason() const override { return {}; }
    QString problem(const QKeySequence &) const override { return {}; }
};

// Records what the store asks of the update check; starts when told to.
class RecordingUpdates : public IUpdateService
{
public:
    QList<bool> checks;
    QString skipped;
    json skip;
    bool startCalled = false;

    void start() override { startCalled = true; }
    void checkForUpdates(bool userRequested) override { checks << userRequested; }
    json skipVersion() const override { return skip; }
    void setSkipVersion(const json &version) override { skip = version; }
    void skipVersionText(const QString &version) override { skipped = version; }
    QString currentVersion() const override { return "1.2.0.0"; }
};

} // namespace

class TestApplicationStore : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<RecordingShortcuts> shortcuts;
    std::shared_ptr<RecordingUpdates> updates;
    std::shared_ptr<ApplicationStore> store;
    std::shared_ptr<CollectingStore> collector;

    void send(ActionType type, QVariant payload = {})
    {
        store->process(std::make_shared<Bureau::Action>(int(type), payload));
    }
    QList<int> dispatchedTypes()
    {
        QCoreApplication::processEvents();
        QList<int> types;
        for (const auto &a : collector->actions)
            types << a->type;
        collector->actions.clear();
        return types;
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        shortcuts = std::make_shared<RecordingShortcuts>();
        updates = std::make_shared<RecordingUpdates>();
        store = std::make_shared<ApplicationStore>(dispatcher, shortcuts, updates);
        collector = std::make_shared<CollectingStore>();
        dispatcher->addStore(collector);
        dispatcher->start();
    }

    void missingKeysGiveDefaultsAndNumbersAreLenient()
    {
        store->loadSettings(json{{"mirror_preview", 0}, {"automatic_updates", 2}, {"show_onboarding", "no"}});
        QCOMPARE(store->mirrorPreview(), false);
        QCOMPARE(store->automaticUpdatesEnabled(), true);
        QCOMPARE(store->showOnboarding(), true); // wrong type: the default
        QCOMPARE(store->alwaysShowGlintcode(), true);
        store->loadSettings(json::array()); // not even an object
        QCOMPARE(store->mirrorPreview(), true);
        QVERIFY(shortcuts->loaded.is_object());
    }

    void unchangedValuesEmitNothing()
    {
        QSignalSpy mirror(store.get(), &ApplicationStore::mirrorPreviewChanged);
        QSignalSpy page(store.get(), &ApplicationStore::currentPageChanged);
        send(ActionType::SetMirrorPreview, true);
        send(ActionType::OpenMainPage);
        QCOMPARE(mirror.count(), 0);
        QCOMPARE(page.count(), 0);
        send(ActionType::SetMirrorPreview, false);
        send(ActionType::SetMirrorPreview, false);
        send(ActionType::OpenTwitchPage);
        send(ActionType::OpenTwitchPage);
        send(ActionType::OpenSettingsPage);
        QCOMPARE(mirror.count(), 1);
        QCOMPARE(page.count(), 2);
        QCOMPARE(store->currentPage(), 1);
    }

    void settingsRoundTrip()
    {
        updates->skip = json{{"major", 1}, {"minor", 3}, {"patch", 0}, {"build", 0}};
        send(ActionType::SetAlwaysShowGlintcode, false);
        const json saved = store->saveSettings();
        QCOMPARE(saved["always_show_glintcode"], json(false));
        QCOMPARE(saved["skip_version"]["minor"], json(3));
        QVERIFY(saved["shortcuts"].contains("role_shortcuts"));

        auto other = std::make_shared<ApplicationStore>(dispatcher, nullptr, nullptr);
        other->loadSettings(saved);
        QCOMPARE(other->alwaysShowGlintcode(), false);
        // Without the services their parts of the section come back unchanged.
        QCOMPARE(other->saveSettings(), saved);
    }

    void unfavouritingOrTakingDownRemovesTheLensHotkey()
    {
        shortcuts->lenses["a"] = QKeySequence("Ctrl+1");
        shortcuts->lenses["b"] = QKeySequence("Ctrl+2");
        LensCommand favorite;
        favorite.lensId = "a";
        favorite.enabled = true;
        send(ActionType::SetLensFavorite, QVariant::fromValue(favorite));
        QVERIFY(shortcuts->lenses.contains("a"));
        favorite.enabled = false;
        send(ActionType::SetLensFavorite, QVariant::fromValue(favorite));
        QVERIFY(!shortcuts->lenses.contains("a"));
        send(ActionType::TakeDownLens, QString("b"));
        QVERIFY(shortcuts->lenses.isEmpty());
    }

    void shortcutRolesDispatchTheirActions()
    {
        QSignalSpy triggered(store.get(), &ApplicationStore::shortcutTriggered);
        emit shortcuts->shortcutActivated(ShortcutRole::ToggleLens);
        emit shortcuts->shortcutActivated(ShortcutRole::ToggleGlintcode);
        emit shortcuts->shortcutActivated(ShortcutRole::ExternalEvent);
        emit shortcuts->shortcutActivated(ShortcutRole::TapEvent);
        emit shortcuts->shortcutActivated(ShortcutRole::EmulateSubscription);
        QCOMPARE(triggered.count(), 5);
        QCoreApplication::processEvents();
        QCOMPARE(collector->actions[0]->payload.value<LensActionContext>(), LensActionContext::Shortcut);
        QCOMPARE(dispatchedTypes(),
                 QList<int>({int(ActionType::ToggleLens), int(ActionType::ToggleGlintcode),
                             int(ActionType::EmulateExternalEvent), int(ActionType::EmulateSubscribeEvent)}));
        emit shortcuts->lensShortcutActivated("lens7");
        QCoreApplication::processEvents();
        QCOMPARE(collector->actions.size(), 1);
        const auto lens = collector->actions[0]->payload.value<LensCommand>();
        QCOMPARE(collector->actions[0]->type, int(ActionType::SetActiveLensId));
        QCOMPARE(lens.lensId, QString("lens7"));
        QCOMPARE(lens.context, LensActionContext::Shortcut);
    }

    void updateChecksFollowTheActions()
    {
        store->loadSettings(json{{"always_show_glintcode", false}});
        send(ActionType::Started);
        // The saved code-image preference goes out to the camera store.
        QCoreApplication::processEvents();
        QCOMPARE(collector->actions.size(), 1);
        QCOMPARE(collector->actions[0]->type, int(ActionType::SetAlwaysShowGlintcode));
        QCOMPARE(collector->actions[0]->payload.toBool(), false);
        collector->actions.clear();
        send(ActionType::CheckForUpdates);
        send(ActionType::SkipUpdate, QString("2.0.0.1"));
        QCOMPARE(updates->checks, QList<bool>({false, true}));
        QCOMPARE(updates->skipped, QString("2.0.0.1"));
        QSignalSpy available(store.get(), &ApplicationStore::latestVersionAvailable);
        emit updates->latestVersionAvailable("2.0.0.0", "Faster");
        emit updates->latestVersionUrlAvailable(QUrl("http://x/y"));
        QCOMPARE(available.count(), 1);
        QCOMPARE(store->latestVersion(), QString("2.0.0.0"));
        QCOMPARE(store->releaseNotes(), QString("Faster"));
        QCOMPARE(store->latestVersionUrl(), QString("http://x/y"));
    }

    void automaticCheckOnlyWhenAllowedAndStatisticsSwitchIsSaved()
    {
        store->loadSettings(json{{"automatic_updates", false}, {"send_usage_statistics", false}});
        QCOMPARE(store->usageStatisticsEnabled(), false);
        send(ActionType::Started);
        QVERIFY(updates->checks.isEmpty());
        send(ActionType::CheckForUpdates); // the user may always ask
        QCOMPARE(updates->checks, QList<bool>({true}));

        QSignalSpy changed(store.get(), &ApplicationStore::usageStatisticsEnabledChanged);
        send(ActionType::SetUsageStatisticsEnabled, true);
        send(ActionType::SetUsageStatisticsEnabled, true);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(store->saveSettings()["send_usage_statistics"], json(true));
        store->loadSettings(json::object());
        QCOMPARE(store->usageStatisticsEnabled(), true); // on unless switched off
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
