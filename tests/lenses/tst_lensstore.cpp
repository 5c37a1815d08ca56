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

#include <QClipboard>
#include <QGuiApplication>
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
#include <popupmessage.h>
#include <settings.h>

using namespace VCam;

namespace {

QStringList popupTexts(const CollectingStore &recorder)
{
    QStringList texts;
    for (const auto &action : recorder.ofType(ActionType::ShowPopupMessage))
        texts << action->payload.value<PopupMessage>().text;
    return texts;
}

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
    void select(const LensId &lensId)
    {
        LensCommand command;
        command.lensId = lensId;
        command.context = LensActionContext::LensExplorer;
        send(ActionType::SetActiveLensId, QVariant::fromValue(command));
    }
    void favorite(const LensId &lensId, bool value)
    {
        LensCommand command;
        command.lensId = lensId;
        command.enabled = value;
        send(ActionType::SetLensFavorite, QVariant::fromValue(command));
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

QByteArray lensPage(const QString &prefix, int count)
{
    QByteArray lenses;
    for (int i = 0; i < count; ++i)
        lenses +=
            (i ? "," : "") +
            QStringLiteral(R"({"unlockable_id":"%1-%2","lens_name":"Lens %2"})").arg(prefix).arg(i).toUtf8();
    return "{\"lenses\":[" + lenses + "]}";
}

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
        QCOMPARE(QProcess::execute("cp", {"-r", QStringLiteral(GLINT_SAMPLE_LENSES "/color-pop"), broken}),
                 0);
        const char *breakIt = "cd \"$0\" && sed -i 's/\"color-pop\"/\"broken-pop\"/' lens.json &&"
                              " echo 'vec4 effect(vec2 uv) { return this is not GLSL; }' > pop.frag";
        QCOMPARE(QProcess::execute("sh", {"-c", breakIt, broken}), 0);
        QVERIFY(m_server.import({broken}));
        QVERIFY(m_server.start());
    }

    // A huge favourites list from the settings file is cut to its first
    // thousand entries.
    void settingsListsAndNumbersAreBounded()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        nlohmann::json favorites = nlohmann::json::array();
        for (int i = 0; i < 200000; ++i)
            favorites.push_back("fav-" + std::to_string(i % 150000));
        rig.store->loadSettings({{"favorites", favorites}});
        QCOMPARE(rig.store->favoriteLensesModel()->rowCount(), 1000);
        QCOMPARE(rig.store->favoriteLensesModel()->lensIdAt(999), QString("fav-999"));
    }

    // The engine cannot load a lens: the card goes back to the lens that
    // ran before, which runs again, and the reason is there to show.
    void lensThatFailsToLoadReturnsToThePreviousLens()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.send(ActionType::Started);
        rig.select("party-hat");
        QTRY_COMPARE_WITH_TIMEOUT(rig.store->state(), LensStore::Applied, 20000);

        QSignalSpy errors(rig.store.get(), &LensStore::lensErrorChanged);
        QSignalSpy answered(rig.core.get(), &CoreStore::lensLoadAnswered);
        rig.select("broken-pop");
        QVERIFY(errors.wait(20000));
        QVERIFY2(rig.store->lensError().startsWith("This lens could not be loaded: "),
                 qPrintable(rig.store->lensError()));
        QCOMPARE(rig.store->currentLensId(), QString("party-hat"));
        QCOMPARE(rig.store->state(), LensStore::Applied);
        QTRY_COMPARE(processingLenses(*rig.recorder).last().lensId, QString("party-hat"));
        QTRY_COMPARE_WITH_TIMEOUT(answered.size(), 2, 20000);
        QCOMPARE(answered.at(0).at(0).toString(), QString("broken-pop"));
        QVERIFY(!answered.at(0).at(1).toString().isEmpty());
        QCOMPARE(answered.at(1).at(0).toString(), QString("party-hat")); // running again
        QCOMPARE(answered.at(1).at(1).toString(), QString());

        // With nothing before it, the card returns to no lens.
        rig.select(kInvalidLensId);
        QTRY_COMPARE(rig.store->state(), LensStore::NoLens);
        rig.select("broken-pop");
        QTRY_VERIFY_WITH_TIMEOUT(!rig.store->lensError().isEmpty(), 20000);
        QCOMPARE(rig.store->currentLensId(), kInvalidLensId);
        QCOMPARE(rig.store->state(), LensStore::NoLens);
    }

    void init() { QVERIFY(m_cache.isValid()); }

    void catalogueSelectionAndRestart()
    {
        QTemporaryDir config;
        const QString settingsPath = config.filePath("settings.json");
        {
            Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
            rig.send(ActionType::Started);
            QTRY_VERIFY(!rig.store->initing());
            QTRY_VERIFY(!rig.store->fetching());
            QCOMPARE(rig.store->featuredLensModel()->rowCount(), 2);
            QVERIFY(rig.store->topCommunityLensModel()->rowCount() >= 7);
            QVERIFY(!rig.store->topCommunityLensModel()->canLoadMore()); // less than a page
            QCOMPARE(rig.store->catalogueError(), QString());
            QCOMPARE(rig.recorder->ofType(ActionType::NotifyFavoriteLensesCounted).value(0)->payload.toInt(),
                     0);

            QSignalSpy hints(rig.store.get(), &LensStore::showHintRequested);
            rig.select("party-hat");
            QCOMPARE(rig.store->currentLensId(), QString("party-hat"));
            QVERIFY(rig.store->acquiring());
            QCOMPARE(rig.store->state(), LensStore::Acquiring);
            QTRY_VERIFY_WITH_TIMEOUT(rig.applied("party-hat"), 15000);
            const LensCommand applied = processingLenses(*rig.recorder).last();
            QVERIFY(QFileInfo(applied.text + "/lens.json").isFile());
            QVERIFY(applied.text.startsWith(m_cache.path()));
            // Applied once the engine runs it.
            QTRY_COMPARE_WITH_TIMEOUT(rig.store->state(), LensStore::Applied, 20000);
            QCOMPARE(rig.store->lensError(), QString());
            QCOMPARE(rig.store->currentLens().value("title").toString(),
                     rig.storage.info("party-hat").lensName);
            QTRY_COMPARE(hints.count(), 1);
            QCOMPARE(hints.at(0).at(0).toString(), HintTable::text("lens_hint_raise_your_eyebrows"));
            QCOMPARE(rig.recorder->ofType(ActionType::ActiveLensChanged).size(), 1);
            QVERIFY(rig.store->refreshTimer()->isActive());

            // Selecting the applied lens again hands nothing over twice.
            rig.select("party-hat");
            QTRY_VERIFY(!rig.store->acquiring());
            QTest::qWait(100);
            QCOMPARE(processingLenses(*rig.recorder).size(), 1);

            // The toggle goes to no lens and back to the last one used.
            rig.send(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
            QTRY_COMPARE(rig.store->currentLensId(), kInvalidLensId);
            QCOMPARE(processingLenses(*rig.recorder).last().lensId, kInvalidLensId);
            QCOMPARE(processingLenses(*rig.recorder).last().text, QString());
            QVERIFY(!rig.store->refreshTimer()->isActive());
            rig.send(ActionType::ToggleLens, QVariant::fromValue(LensActionContext::Shortcut));
            QTRY_VERIFY(rig.applied("party-hat"));
            QCOMPARE(processingLenses(*rig.recorder).size(), 3);

            QSignalSpy favorite(rig.store.get(), &LensStore::isFavoriteChanged);
            rig.favorite("color-pop", true);
            rig.favorite("party-hat", true);
            QCOMPARE(favorite.count(), 2);
            QVERIFY(rig.store->isLensFavorite("party-hat"));
            QVERIFY(rig.store->currentLens().value("isFav").toBool());

            Settings settings(settingsPath, QString(glint::kSourceDir) + "/app/defaults/settings.json");
            settings.load();
            settings.setSection("lenses", rig.store->saveSettings());
            QVERIFY(settings.save());
        }

        Settings settings(settingsPath, QString(glint::kSourceDir) + "/app/defaults/settings.json");
        QVERIFY(settings.load());
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.store->loadSettings(settings.section("lenses"));
        QCOMPARE(rig.store->favoriteLensesModel()->lensIds(), (QStringList{"party-hat", "color-pop"}));
        QCOMPARE(rig.store->recentsSourceModel()->mostRecent(), QString("party-hat"));
        QCOMPARE(rig.store->recentsLensModel()->count(), 0); // records not fetched yet
        rig.send(ActionType::Started);
        QTRY_COMPARE(rig.store->recentsLensModel()->count(), 1);
        QCOMPARE(rig.store->recentsLensModel()->lensIdAt(0), QString("party-hat"));
        QTRY_VERIFY(!rig.store->favoriteLensesModel()
                         ->index(1)
                         .data(LensInfoStorage::TitleRole)
                         .toString()
                         .isEmpty());
        QCOMPARE(rig.recorder->ofType(ActionType::NotifyFavoriteLensesCounted).value(0)->payload.toInt(), 2);
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
        rig.send(ActionType::TakeDownLens, QStringLiteral("film-noir"));
        QCOMPARE(rig.store->currentLensId(), QString("sunglasses"));
        const QString folder = rig.provider->cache().lensPath("sunglasses");
        rig.send(ActionType::TakeDownLens, QStringLiteral("sunglasses"));
        QCOMPARE(rig.store->currentLensId(), kInvalidLensId);
        QCOMPARE(processingLenses(*rig.recorder).last().lensId, kInvalidLensId);
        QVERIFY(!QFileInfo::exists(folder));

        rig.send(ActionType::SetSearchFilter, QStringLiteral("eyes"));
        QTRY_COMPARE(rig.store->searchLensModel()->rowCount(), 2);
        rig.send(ActionType::SetSearchFilter, QString());
        QTest::qWait(100);
        QCOMPARE(rig.store->searchLensModel()->rowCount(), 2);
        QVERIFY(!rig.store->fetching());

        // A pasted lens link shows that lens alone.
        rig.send(ActionType::SetSearchFilter, rig.storage.info("big-eyes").deeplink);
        QVERIFY(!rig.storage.info("big-eyes").deeplink.isEmpty());
        QTRY_COMPARE(rig.store->searchLensModel()->lensIds(), QStringList{"big-eyes"});
        QTRY_VERIFY(!rig.store->fetching());
    }

    void failuresAndClearing()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.select("no-such-lens");
        QTRY_VERIFY(!rig.store->acquiring());
        QCOMPARE(rig.store->currentLensId(), QString("no-such-lens"));
        QCOMPARE(rig.store->state(), LensStore::Failed);
        const auto popups = rig.recorder->ofType(ActionType::ShowPopupMessage);
        QCOMPARE(popups.size(), 1);
        QCOMPARE(popups[0]->payload.value<PopupMessage>().type, MessageType::Warning);
        QVERIFY(!popups[0]->payload.value<PopupMessage>().text.isEmpty());
        QVERIFY(processingLenses(*rig.recorder).isEmpty());

        rig.recorder->actions.clear();
        rig.send(ActionType::ClearCache);
        rig.send(ActionType::ClearFavorites);
        rig.send(ActionType::ClearRecents);
        QCOMPARE(popupTexts(*rig.recorder),
                 (QStringList{"Application data cleared", "Application data cleared",
                              "Application data cleared"}));
        QCOMPARE(rig.store->recentsSourceModel()->mostRecent(), kInvalidLensId);

        QSignalSpy limit(rig.store.get(), &LensStore::cacheLimitChanged);
        rig.send(ActionType::SetCacheLimit, 300);
        rig.send(ActionType::SetCacheLimit, 300);
        QCOMPARE(limit.count(), 1);
        QCOMPARE(rig.store->saveSettings()["cache"]["cacheSize"].get<int>(), 300);
        QTemporaryDir otherCache;
        rig.send(ActionType::SetCacheDir, QUrl::fromLocalFile(otherCache.path()));
        QCOMPARE(rig.store->cacheDirDisplayName(), QDir::toNativeSeparators(otherCache.path()));
        QCOMPARE(QString::fromStdString(rig.store->saveSettings()["cache"]["cachePath"].get<std::string>()),
                 otherCache.path());
    }

    void offlineCatalogueComesBack()
    {
        m_server.stop();
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.network.setRecheckInterval(200);
        QSignalSpy online(rig.store.get(), &LensStore::onlineChanged);
        rig.send(ActionType::Started);
        QTRY_VERIFY(!rig.store->initing());
        QVERIFY(rig.store->catalogueError().startsWith("Failed to receive"));
        QCOMPARE(rig.store->featuredLensModel()->rowCount(), 0);
        QTRY_VERIFY(!rig.store->online());

        QVERIFY(m_server.start()); // the same port as before
        QTRY_VERIFY_WITH_TIMEOUT(rig.store->online(), 10000);
        QTRY_COMPARE(rig.store->featuredLensModel()->rowCount(), 2);
        QTRY_COMPARE(rig.store->catalogueError(), QString());
        QVERIFY(rig.store->topCommunityLensModel()->rowCount() >= 7);
        QCOMPARE(online.count(), 2);
    }

    void communityPagesOneAtATime()
    {
        HttpFixture backend;
        backend.route("/vc/v1/explorer/scheduled", 200, lensPage("featured", 1));
        backend.route("/vc/v1/explorer/top", {200, lensPage("first", 50), "application/json", false, 200});
        Rig rig(backend.url("/vc/v1"), m_cache.path(), m_server.publicKey());
        BaseLensModel *community = rig.store->topCommunityLensModel();
        rig.send(ActionType::Started);
        QTRY_COMPARE(community->rowCount(), 50);
        QVERIFY(community->canLoadMore());

        backend.route("/vc/v1/explorer/top", {200, lensPage("second", 10), "application/json", false, 300});
        QSignalSpy requested(community, &BaseLensModel::fetchMoreRequested);
        community->requestMore();
        community->requestMore(); // the view asks again while the page is on its way
        rig.store->fetchCommunityLenses();
        QTRY_COMPARE(community->rowCount(), 60);
        QCOMPARE(requested.count(), 1);
        QCOMPARE(community->lensIdAt(50), QString("second-0"));
        QCOMPARE(backend.count("/vc/v1/explorer/top"), 2);
        QVERIFY(backend.received().last().target.contains("offset=50"));
        QVERIFY(!community->canLoadMore()); // a short page is the last one
        community->requestMore();
        QTest::qWait(100);
        QCOMPARE(backend.count("/vc/v1/explorer/top"), 2);
    }

    void codeImageLinkAndReport()
    {
        Rig rig(m_server.baseUrl(), m_cache.path(), m_server.publicKey());
        rig.send(ActionType::Started);
        QTRY_VERIFY(!rig.store->initing());
        QTemporaryDir out;
        LensCommand command;
        command.lensId = "confetti";
        command.url = QUrl::fromLocalFile(out.filePath("code.png"));
        rig.send(ActionType::SaveGlintcode, QVariant::fromValue(command));
        QTRY_VERIFY(QFileInfo(out.filePath("code.png")).size() > 0);
        QFile code(out.filePath("code.png"));
        QVERIFY(code.open(QIODevice::ReadOnly));
        QCOMPARE(code.read(8), QByteArray("\x89PNG\r\n\x1a\n"));

        rig.send(ActionType::CopyLensLink, QVariant::fromValue(command));
        QCOMPARE(QGuiApplication::clipboard()->text(), rig.storage.info("confetti").deeplink);
        QCOMPARE(popupTexts(*rig.recorder), QStringList{"Lens link copied"});

        QSignalSpy reported(rig.store.get(), &LensStore::reportLensSuccess);
        command.kind = int(LensReportType::CopyrightInfringement);
        command.text = QStringLiteral("Not theirs");
        rig.send(ActionType::ReportLens, QVariant::fromValue(command));
        QTRY_COMPARE(reported.count(), 1);
    }

private:
    LensServerProcess m_server;
    QTemporaryDir m_cache;
    QTemporaryDir m_scratch;
};

QTEST_MAIN(TestLensStore)
#include "tst_lensstore.moc"
