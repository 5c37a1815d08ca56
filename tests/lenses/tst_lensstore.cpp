#include "baselensmodel.h"
#include "favoriteslensmodel.h"
#include "httpfixture.h"
#include "lensinfostorage.h"
#include "lensserverprocess.h"
#include "lensstore.h"
#include "networklensprovider.h"
#include "networkmanager.h"
#include "recentslensmodel.h"
#include "recentslensproxymodel.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <actiontypes.h>
#include <collectingstore.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <glintdeployment.h>
#include <hinttable.h>
#include <lenscache.h>
#include <lenscommand.h>
#include <metatypes.h>
#include <settings.h>

using namespace VCam;

namespace {

QList<LensCommand> processingLenses(const CollectingStore &recorder)
{
    QList<LensCommand> lenses;
    for (const auto &action : recorder.ofType(ActionType::SetCoreProcessingLens))
        lenses << action->payload.value<LensCommand>();
    return lenses;
}

// The lens side of the application as start-up wires it, over a backend,
// with the camera store and its engine answering every lens handed over
// (no camera and no virtual camera output).
struct Rig
{
    Rig(const QString &baseUrl, const QString &cacheRoot, const QString &key)
        : network(baseUrl, [] { return QStringLiteral("store-test"); }),
          provider(new NetworkLensProvider(&network, cacheRoot, key)),
          dispatcher(std::make_shared<Bureau::Dispatcher>()),
          store(std::make_shared<LensStore>(dispatcher, provider, &provider->cache(), &network, &storage)),
          core(std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }))),
          recorder(std::make_shared<CollectingStore>())
    {
        QObject::connect(core.get(), &CoreStore::lensLoadAnswered, store.get(),
                         &LensStore::onLensLoadAnswered);
        dispatcher->addStore(core);
        dispatcher->addStore(store);
        dispatcher->addStore(recorder);
        QSignalSpy started(dispatcher.get(), &Bureau::Dispatcher::started);
        dispatcher->start();
        if (dispatcher->state() != Bureau::Dispatcher::Started)
            started.wait(15000);
    }
    ~Rig() { dispatcher->stop(); }

    void send(ActionType type, const QVariant &payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), payload));
        QCoreApplication::processEvents();
    }
    void select(const LensId &lensId, ActionType type = ActionType::SetActiveLensId)
    {
        LensCommand command;
        command.lensId = lensId;
        command.context = LensActionContext::LensExplorer;
        command.enabled = true;
        send(type, QVariant::fromValue(command));
    }
    bool applied(const LensId &lensId) const
    {
        const auto lenses = processingLenses(*recorder);
        return !lenses.isEmpty() && lenses.last().lensId == lensId && !store->acquiring();
    }

    NetworkManager network;
    LensInfoStorage storage;
    NetworkLensProvider *provider;
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<LensStore> store;
    std::shared_ptr<CoreStore> core;
    std::shared_ptr<CollectingStore> recorder;
};

QStringList sampleLenses(const QStringList &names)
{
    QStringList folders;
    for (const QString &name : names)
        folders << QStringLiteral(GLINT_SAMPLE_LENSES "/") + name;
    return folders;
}

} // namespace

class TestLensStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        QVERIFY(m_server.isReady());
        QVERIFY(m_server.import(sampleLenses(
            {"big-eyes", "confetti", "film-noir", "fireworks", "heart-eyes", "retro-vhs", "sunglasses"})));
        QVERIFY(m_server.import(sampleLenses({"party-hat", "color-pop"}), true));
        // A signed lens whose shader does not compile.
        const QString broken = m_scratch.filePath("broken-pop");
        const char *breakIt =
            "cp -r \"$0\" \"$1\" && cd \"$1\" && sed -i 's/\"color-pop\"/\"broken-pop\"/' lens.json"
            " && echo 'vec4 effect(vec2 uv) { return this is not GLSL; }' > pop.frag";
        QCOMPARE(QProcess::execute("sh", {"-c", breakIt, sampleLenses({"color-pop"}).first(), broken}), 0);
        QVERIFY(m_server.import({broken}));
        QVERIFY(m_server.start());
    }

    // A huge favourites list from the settings file is cut to its first
    // thousand entries; recents in any order come back newest first, and
    // bad elements are skipped.
    void settingsListsAreBoundedAndChecked()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        nlohmann::json favorites = nlohmann::json::array();
        for (int i = 0; i < 200000; ++i)
            favorites.push_back("fav-" + std::to_string(i % 150000));
        rig.store->loadSettings(
            {{"favorites", favorites}, {"recents", nlohmann::json::parse(R"([{"lensId":"old","timestamp":1},
                                     {"lensId":7},{"lensId":"new","timestamp":9},"x"])")}});
        QCOMPARE(rig.store->favoriteLensesModel()->rowCount(), 1000);
        QCOMPARE(rig.store->favoriteLensesModel()->lensIdAt(999), QString("fav-999"));
        QCOMPARE(rig.store->recentsSourceModel()->lensIds(), (QStringList{"new", "old"}));
    }

    // The engine cannot load a lens: the card goes back to the lens that
    // ran before (or to none), which runs again, and the reason is shown.
    void lensThatFailsToLoadReturnsToThePreviousLens()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.send(ActionType::Started);
        rig.select("party-hat");
        QTRY_COMPARE_WITH_TIMEOUT(rig.store->state(), LensStore::Applied, 20000);
        QSignalSpy answered(rig.core.get(), &CoreStore::lensLoadAnswered);
        QSignalSpy errors(rig.store.get(), &LensStore::lensErrorChanged);
        rig.select("broken-pop");
        QVERIFY(errors.wait(20000));
        QVERIFY2(rig.store->lensError().startsWith("This lens could not be loaded: "),
                 qPrintable(rig.store->lensError()));
        QCOMPARE(rig.store->currentLensId(), QString("party-hat"));
        QCOMPARE(rig.store->state(), LensStore::Applied);
        QTRY_COMPARE_WITH_TIMEOUT(answered.size(), 2, 20000);
        QCOMPARE(answered.at(0).at(0).toString(), QString("broken-pop"));
        QVERIFY(!answered.at(0).at(1).toString().isEmpty());
        QCOMPARE(answered.at(1), (QList<QVariant>{"party-hat", QString()})); // running again

        rig.select(kInvalidLensId);
        QTRY_COMPARE(rig.store->state(), LensStore::NoLens);
        rig.select("broken-pop");
        QTRY_COMPARE_WITH_TIMEOUT(answered.size(), 3, 20000);
        QTRY_COMPARE(rig.store->state(), LensStore::NoLens);
        QCOMPARE(rig.store->currentLensId(), kInvalidLensId);
    }

    void catalogueSelectionAndRestart()
    {
        QTemporaryDir config;
        const QString defaults = QString(glint::kSourceDir) + "/app/defaults/settings.json";
        Settings saved(config.filePath("settings.json"), defaults);
        {
            Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
            rig.send(ActionType::Started);
            QTRY_VERIFY(!rig.store->initing() && !rig.store->fetching());
            QCOMPARE(rig.store->featuredLensModel()->rowCount(), 2);
            QVERIFY(rig.store->topCommunityLensModel()->rowCount() >= 7);

            QSignalSpy hints(rig.store.get(), &LensStore::showHintRequested);
            rig.select("party-hat");
            QTRY_VERIFY_WITH_TIMEOUT(rig.applied("party-hat"), 15000);
            const LensCommand applied = processingLenses(*rig.recorder).last();
            QVERIFY(QFileInfo(applied.text + "/lens.json").isFile());
            QTRY_COMPARE_WITH_TIMEOUT(rig.store->state(), LensStore::Applied,
                                      20000); // once the engine runs it
            QTRY_COMPARE(hints.count(), 1);
            QCOMPARE(hints.at(0).at(0).toString(), HintTable::text("lens_hint_raise_your_eyebrows"));

            rig.select("color-pop", ActionType::SetLensFavorite);
            rig.select("party-hat", ActionType::SetLensFavorite);
            QVERIFY(saved.load());
            saved.setSection("lenses", rig.store->saveSettings());
            QVERIFY(saved.save());
        }

        Settings settings(config.filePath("settings.json"), defaults);
        QVERIFY(settings.load());
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.store->loadSettings(settings.section("lenses"));
        QCOMPARE(rig.store->favoriteLensesModel()->lensIds(), (QStringList{"party-hat", "color-pop"}));
        QCOMPARE(rig.store->recentsSourceModel()->mostRecent(), QString("party-hat"));
        rig.send(ActionType::Started);
        QTRY_COMPARE(rig.store->recentsLensModel()->count(), 1);
        // The cached lens is used from the disk after the restart.
        rig.send(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
        QTRY_VERIFY(rig.applied("party-hat"));
    }

    void togglesTakeDownsAndSearches()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.send(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
        QTest::qWait(50);
        QCOMPARE(rig.recorder->ofType(ActionType::SetActiveLensId).size(), 0); // nothing to go back to

        rig.select("sunglasses");
        QTRY_VERIFY(rig.applied("sunglasses"));
        // The toggle goes to no lens and back to the last one used.
        for (const LensId &expected : {kInvalidLensId, LensId("sunglasses")}) {
            rig.send(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
            QTRY_VERIFY(rig.applied(expected));
        }
        rig.send(ActionType::TakeDownLens, QStringLiteral("film-noir"));
        QCOMPARE(rig.store->currentLensId(), QString("sunglasses"));
        const QString folder = rig.provider->cache().lensPath("sunglasses");
        rig.send(ActionType::TakeDownLens, QStringLiteral("sunglasses"));
        QCOMPARE(rig.store->currentLensId(), kInvalidLensId);
        QCOMPARE(processingLenses(*rig.recorder).last().lensId, kInvalidLensId);
        QVERIFY(!QFileInfo::exists(folder));

        rig.send(ActionType::SetSearchFilter, QStringLiteral("eyes"));
        QTRY_COMPARE(rig.store->searchLensModel()->rowCount(), 2);
        rig.send(ActionType::SetSearchFilter, QString()); // an empty search leaves the results
        QTest::qWait(100);
        QCOMPARE(rig.store->searchLensModel()->rowCount(), 2);
    }

    void failuresAndClearing()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.select("no-such-lens");
        QTRY_COMPARE(rig.store->state(), LensStore::Failed);
        QCOMPARE(rig.recorder->ofType(ActionType::ShowPopupMessage).size(), 1);
        QVERIFY(processingLenses(*rig.recorder).isEmpty());

        rig.recorder->actions.clear();
        rig.send(ActionType::ClearCache);
        rig.send(ActionType::ClearFavorites);
        rig.send(ActionType::ClearRecents);
        QCOMPARE(rig.recorder->ofType(ActionType::ShowPopupMessage).size(), 3);
        QCOMPARE(rig.store->recentsSourceModel()->mostRecent(), kInvalidLensId);
    }

private:
    LensServerProcess m_server;
    QTemporaryDir m_cache;
    QTemporaryDir m_scratch;
};

QTEST_MAIN(TestLensStore)
#include "tst_lensstore.moc"
