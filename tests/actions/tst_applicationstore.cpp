#include <QSignalSpy>
#include <QtTest>
#include <applicationstore.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <globalshortcut.h>
#include <metatypes.h>
#include <popupmessage.h>

using namespace VCam;
using nlohmann::json;

// The store as the application builds it today: the hotkey and update
// services are not there yet, so their parts of the settings section must
// pass through untouched.
class TestApplicationStore : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<ApplicationStore> store;
    std::shared_ptr<CollectingStore> collector;

    void send(ActionType type, QVariant payload = {})
    {
        store->process(std::make_shared<Bureau::Action>(int(type), payload));
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        store = std::make_shared<ApplicationStore>(dispatcher, nullptr, nullptr);
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

    void settingsOfAbsentServicesSurviveARoundTrip()
    {
        const json shortcuts = {{"role_shortcuts", {{{"role", 1}, {"sequence", "Ctrl+L"}}}}};
        const json skip = {{"major", 1}, {"minor", 3}, {"patch", 0}, {"build", 0}};
        store->loadSettings(json{{"shortcuts", shortcuts}, {"skip_version", skip}});
        send(ActionType::SetAlwaysShowGlintcode, false);
        const json saved = store->saveSettings();
        QCOMPARE(saved["shortcuts"], shortcuts);
        QCOMPARE(saved["skip_version"], skip);
        QCOMPARE(saved["always_show_glintcode"], json(false));

        auto other = std::make_shared<ApplicationStore>(dispatcher, nullptr, nullptr);
        other->loadSettings(saved);
        QCOMPARE(other->alwaysShowGlintcode(), false);
        QCOMPARE(other->saveSettings(), saved);
        // Without hotkeys a shortcut request changes nothing that is saved.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Global hotkeys are not available"));
        other->process(std::make_shared<Bureau::Action>(
            int(ActionType::SetGlobalShortcut),
            QVariant::fromValue(GlobalShortcut{ShortcutRole::ToggleLens, QKeySequence("Ctrl+K")})));
        QCOMPARE(other->saveSettings(), saved);
    }

    void popupsGoOutByKind()
    {
        QSignalSpy warning(store.get(), &ApplicationStore::showWarningPopup);
        QSignalSpy info(store.get(), &ApplicationStore::showInfoPopup);
        QSignalSpy success(store.get(), &ApplicationStore::showSuccessPopup);
        send(ActionType::ShowPopupMessage,
             QVariant::fromValue(PopupMessage{"careful", MessageType::Warning}));
        send(ActionType::ShowPopupMessage, QVariant::fromValue(PopupMessage{"done", MessageType::Success}));
        QCOMPARE(warning.count(), 1);
        QCOMPARE(warning[0][0].toString(), QString("careful"));
        QCOMPARE(success.count(), 1);
        QCOMPARE(info.count(), 0);
    }

    void startTellsTheCameraStoreTheSavedCodeImagePreference()
    {
        QSignalSpy started(store.get(), &ApplicationStore::started);
        store->start();
        QCOMPARE(started.count(), 1);
        store->loadSettings(json{{"always_show_glintcode", false}});
        send(ActionType::Started);
        send(ActionType::CheckForUpdates); // no update service: nothing happens
        QCoreApplication::processEvents();
        QCOMPARE(collector->actions.size(), 1);
        QCOMPARE(collector->actions[0]->type, int(ActionType::SetAlwaysShowGlintcode));
        QCOMPARE(collector->actions[0]->payload.toBool(), false);
    }
};

QTEST_GUILESS_MAIN(TestApplicationStore)
#include "tst_applicationstore.moc"
