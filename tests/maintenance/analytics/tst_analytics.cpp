// Usage analytics end to end: actions go through the real dispatcher and the
// analytics middleware, the service uploads batches to the real lens server
// (or to a fixture for answers the server would not give), and the test
// decodes what the server stored with the event schema.
#include <QTemporaryDir>
#include <QtTest>
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <actiontypes.h>
#include <analyticsmiddleware.h>
#include <analyticsqueuefile.h>
#include <analyticsservice.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <httpfixture.h>
#include <lenscommand.h>
#include <lensinfo.h>
#include <lensserverprocess.h>
#include <messagecapture.h>
#include <metatypes.h>
#include <networkmanager.h>
#include <xwindowdriver.h>

using namespace VCam;
using Event = AnalyticsService::Event;
using XWindowDriver::waitFor;

namespace {

const QString kInstallation = QStringLiteral("test-installation-0001");

// Dispatcher, middleware and service wired as the application does, against
// a backend base and an analytics endpoint.
struct Rig
{
    Rig(const QString &baseUrl, const QString &analyticsUrl, const QString &folder, int throttleMs = 400,
        qint64 flushMs = 600000)
        : network(baseUrl, [] { return kInstallation; })
    {
        qputenv("GLINT_ANALYTICS_URL", analyticsUrl.toUtf8());
        service =
            std::make_shared<AnalyticsService>(&network, folder, kInstallation, nullptr, throttleMs, flushMs);
        middleware = std::make_shared<AnalyticsMiddleware>(service);
        dispatcher->addMiddleware(middleware);
        dispatcher->addStore(store);
    }
    ~Rig()
    {
        if (running)
            dispatcher->stop();
    }
    void start()
    {
        dispatcher->start();
        running = true;
    }
    void send(ActionType type, const QVariant &payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), payload));
    }

    NetworkManager network;
    std::shared_ptr<AnalyticsService> service;
    std::shared_ptr<AnalyticsMiddleware> middleware;
    std::shared_ptr<Bureau::Dispatcher> dispatcher = std::make_shared<Bureau::Dispatcher>();
    std::shared_ptr<CollectingStore> store = std::make_shared<CollectingStore>();
    bool running = false;
};

QVariant lensCommand(const QString &lensId, LensActionContext context, bool enabled = false)
{
    LensCommand command;
    command.lensId = lensId;
    command.context = context;
    command.enabled = enabled;
    return QVariant::fromValue(command);
}

const Gale::GlintcameraEventBase &baseOf(const Event &event)
{
    switch (event.event_case()) {
    case Event::kLensAction:
        return event.lens_action().glintcamera_event_base();
    case Event::kSessionAction:
        return event.session_action().glintcamera_event_base();
    case Event::kUserAction:
        return event.user_action().glintcamera_event_base();
    default:
        return event.extention_action().glintcamera_event_base();
    }
}

// A short readable name per event, to compare sequences.
QString nameOf(const Event &event)
{
    switch (event.event_case()) {
    case Event::kLensAction:
        return QString::fromStdString(
            Gale::GlintCameraLensEvents_Name(event.lens_action().glint_camera_lens_events()));
    case Event::kSessionAction:
        return QString::fromStdString(
            Gale::GlintCameraSession_Name(event.session_action().glint_camera_session()));
    case Event::kUserAction:
        return QString::fromStdString(
            Gale::GlintCameraUserInteraction_Name(event.user_action().glint_camera_user_interaction()));
    default:
        return QStringLiteral("STREAM");
    }
}

QStringList namesOf(const std::vector<Event> &events)
{
    QStringList names;
    for (const Event &event : events)
        names << nameOf(event);
    return names;
}

std::vector<Event> decodeBatch(const QByteArray &body)
{
    Gale::GlintcameraEventBatch batch;
    if (!batch.ParseFromArray(body.constData(), body.size()))
        return {};
    return {batch.events().begin(), batch.events().end()};
}

// Every batch the lens server stored, decoded, in arrival order.
QList<std::vector<Event>> storedBatches(const LensServerProcess &server)
{
    QList<std::vector<Event>> batches;
    SQLite::Database db((server.dataDir() + "/lenses.db").toStdString(), SQLite::OPEN_READONLY);
    SQLite::Statement rows(db, "SELECT body, installation_id FROM analytics_batches ORDER BY id");
    while (rows.executeStep()) {
        const SQLite::Column body = rows.getColumn(0);
        batches << decodeBatch(QByteArray(static_cast<const char *>(body.getBlob()), body.getBytes()));
    }
    return batches;
}

std::vector<Event> storedEvents(const LensServerProcess &server)
{
    std::vector<Event> all;
    for (const auto &batch : storedBatches(server))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

} // namespace

class TestAnalytics : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerMetaTypes(); }

    void actionsBecomeTheRightEventsOnTheServer()
    {
        LensServerProcess server;
        QVERIFY(server.isReady());
        QVERIFY(server.start());
        QTemporaryDir folder;
        Rig rig(server.baseUrl(), server.baseUrl() + "/analytics", folder.path());
        rig.start();

        LensInfo active;
        active.lensId = QStringLiteral("lens-a");
        rig.send(ActionType::Started);
        rig.send(ActionType::OpenTwitchPage); // not linked yet: no event
        rig.send(ActionType::TwitchUserAuthorized);
        rig.send(ActionType::OpenTwitchPage);
        rig.send(ActionType::NotifyFavoriteLensesCounted, QStringLiteral("4"));
        rig.send(ActionType::ActiveLensChanged, QVariant::fromValue(active));
        rig.send(ActionType::SetActiveLensId, lensCommand("lens-b", LensActionContext::Search));
        rig.send(ActionType::SetLensFavorite, lensCommand("lens-b", LensActionContext::Favorites, true));
        rig.send(ActionType::SetLensFavorite,
                 lensCommand("lens-b", LensActionContext(99))); // no such context
        rig.send(ActionType::LensDownloaded, QStringLiteral("lens-c"));
        rig.send(ActionType::UpdateFrame);
        rig.send(ActionType::OpenSettingsPage);
        rig.send(ActionType::TwitchUserDeauthorized);
        rig.send(ActionType::OpenTwitchPage); // no longer linked: no event
        rig.send(ActionType::NotifyFavoriteLensesCounted, QStringLiteral("many")); // gives 0
        rig.send(ActionType::CopyLensLink, lensCommand("lens-d", LensActionContext::Shortcut));

        const QStringList expected{"SESSION_START",   "TWITCH_LOGIN",       "TWITCH_SETTINGS_OPEN",
                                   "LENS_ACTIVATION", "LENS_ADD_FAVORITES", "LENS_REMOVE_FAVORITES",
                                   "LENS_DOWNLOAD",   "SETTINGS_OPEN",      "LENS_COPY_LINK"};
        QVERIFY(waitFor([&] { return storedEvents(server).size() >= size_t(expected.size()); }));
        const std::vector<Event> events = storedEvents(server);
        QCOMPARE(namesOf(events), expected);
        // The throttle sent the start at once and the rest together.
        QCOMPARE(storedBatches(server).size(), 2);
        QCOMPARE(storedBatches(server).first().size(), size_t(1));

        // Every action reached the store, unchanged.
        QCOMPARE(rig.store->actions.size(), 16);
        QCOMPARE(rig.store->actions[6]->payload.value<LensCommand>().lensId, QStringLiteral("lens-b"));

        const auto &activation = events[3].lens_action();
        QCOMPARE(activation.glint_camera_lens_source(), Gale::LENS_SEARCH);
        QCOMPARE(activation.num_lens_in_favorites(), 4);
        QCOMPARE(activation.glintcamera_event_base().lens_id(), std::string("lens-b"));
        QCOMPARE(events[4].lens_action().glint_camera_lens_source(), Gale::LENS_FAVORITES);
        QCOMPARE(events[5].lens_action().glint_camera_lens_source(), Gale::UNKNOWN_GLINT_CAMERA_LENS_SOURCE);
        QCOMPARE(events[6].lens_action().glint_camera_lens_source(), Gale::SOURCE_NONE);
        QCOMPARE(events[6].lens_action().glintcamera_event_base().lens_id(), std::string("lens-c"));
        QCOMPARE(events[8].lens_action().glint_camera_lens_source(), Gale::SHORTCUT);
        QCOMPARE(events[8].lens_action().num_lens_in_favorites(), 0);
        // Events that are not about a lens name the active one.
        QCOMPARE(baseOf(events[7]).lens_id(), std::string("lens-a"));
        QVERIFY(events[0].session_action().with_glintcode_enabled());

        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (const Event &event : events) {
            const auto &base = baseOf(event);
            QCOMPARE(base.installation_id(), kInstallation.toStdString());
            QCOMPARE(base.app_session_id(), rig.service->sessionId().toStdString());
            QCOMPARE(base.app_type(), Gale::GLINTCAMERA);
            QVERIFY(base.client_ts() > now - 60000 && base.client_ts() <= now);
        }
        QVERIFY(
            waitFor([&] { return rig.service->inFlightCount() == 0 && rig.service->pendingCount() == 0; }));

        // The operator's view of the same batches.
        QProcess stats;
        stats.start(LensServerProcess::serverPath(), {"stats", "--data-dir", server.dataDir()});
        QVERIFY(stats.waitForFinished(30000));
        QVERIFY2(stats.exitCode() == 0, stats.readAllStandardError().constData());
        const QJsonObject counts = QJsonDocument::fromJson(stats.readAllStandardOutput()).object();
        QCOMPARE(counts["batches"].toInt(), 2);
        QCOMPARE(counts["events"].toInt(), expected.size());
        QCOMPARE(counts["installations"].toInt(), 1);
        QCOMPARE(counts["by_type"].toObject()["LENS_ACTIVATION"].toInt(), 1);
        QCOMPARE(counts["by_type"].toObject()["SESSION_START"].toInt(), 1);
        const QString today = QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate);
        QCOMPARE(counts["by_day"].toObject()[today].toObject()["total"].toInt(), expected.size());
    }

    void eventsWaitWhileTheServerIsDownAndLeaveOnceWhenItIsBack()
    {
        LensServerProcess server;
        QVERIFY(server.start());
        QTemporaryDir folder;
        Rig rig(server.baseUrl(), server.baseUrl() + "/analytics", folder.path(), 300, 1500);
        rig.start();
        server.stop();
        MessageCapture log("glint.analytics");
        for (int i = 0; i < 5; ++i)
            rig.send(ActionType::OpenSettingsPage);
        QVERIFY(
            waitFor([&] { return rig.service->pendingCount() == 5 && rig.service->inFlightCount() == 0; }));
        QVERIFY(log.count("not sent; kept for later") >= 1);
        // Kept on disk as soon as an upload failed.
        QVERIFY(QFile::exists(rig.service->queuePath()));

        QVERIFY(server.start()); // same port
        // The flush timer sends what waits even without new actions.
        QVERIFY(
            waitFor([&] { return rig.service->pendingCount() == 0 && rig.service->inFlightCount() == 0; }));
        QVERIFY(waitFor([&] { return storedEvents(server).size() == 5; }));
        QTest::qWait(1800);
        QCOMPARE(storedEvents(server).size(), size_t(5)); // each exactly once
        QVERIFY(!QFile::exists(rig.service->queuePath()));
    }

    void queueSurvivesARestartAndAnUncleanEndIsReported()
    {
        LensServerProcess server;
        QVERIFY(server.start());
        server.stop();
        QTemporaryDir folder;
        const QString analyticsUrl = server.baseUrl() + "/analytics";
        QString firstSession;
        {
            Rig first(server.baseUrl(), analyticsUrl, folder.path(), 300);
            first.start();
            first.send(ActionType::Started);
            first.send(ActionType::NotifyRecentsOpened);
            QVERIFY(waitFor(
                [&] { return first.service->pendingCount() == 2 && first.service->inFlightCount() == 0; }));
            firstSession = first.service->sessionId();
        } // a clean stop: SESSION_END joins the queue on disk
        QVERIFY(QFile::exists(folder.filePath("analytics.proto.bin")));
        QVERIFY(!QFile::exists(folder.filePath("analytics.session")));

        QVERIFY(server.start());
        QString secondSession;
        {
            Rig second(server.baseUrl(), analyticsUrl, folder.path(), 300);
            second.start();
            QVERIFY(waitFor([&] { return storedEvents(server).size() == 3; }));
            QVERIFY(!QFile::exists(folder.filePath("analytics.proto.bin")));
            secondSession = second.service->sessionId();
            // This run ends without its stop, as in a crash.
            second.running = false;
        }
        QVERIFY(QFile::exists(folder.filePath("analytics.session")));
        const std::vector<Event> before = storedEvents(server);
        QCOMPARE(namesOf(before).join(' '), QStringLiteral("SESSION_START RECENTS_OPEN SESSION_END"));
        for (const Event &event : before)
            QCOMPARE(baseOf(event).app_session_id(), firstSession.toStdString());

        Rig third(server.baseUrl(), analyticsUrl, folder.path(), 300);
        third.start();
        QVERIFY(waitFor([&] { return storedEvents(server).size() == 4; }));
        const Event crash = storedEvents(server).back();
        QCOMPARE(nameOf(crash), QStringLiteral("SESSION_CRASH"));
        QCOMPARE(baseOf(crash).app_session_id(), secondSession.toStdString());
    }

    void sessionContinuesWhileRunningAndEndsAtTheStop()
    {
        HttpFixture backend;
        backend.route("/analytics", 200, "{}");
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), backend.url("/analytics"), folder.path(), 100);
        rig.middleware->setSessionInterval(150);
        rig.start();
        rig.send(ActionType::SetAlwaysShowGlintcode, false);
        rig.send(ActionType::Started);
        QVERIFY(waitFor([&] { return backend.count("/analytics") >= 3; }));
        rig.dispatcher->stop();
        rig.running = false;
        std::vector<Event> events;
        for (const auto &request : backend.received())
            for (const Event &event : decodeBatch(request.body))
                events.push_back(event);
        AnalyticsQueueFile::load(rig.service->queuePath(), events, 100);
        const QStringList names = namesOf(events);
        QCOMPARE(names.first(), QStringLiteral("SESSION_START"));
        QVERIFY(names.count("SESSION_CONTINUE") >= 2);
        // The end is kept for the next run, not sent while the program quits.
        QCOMPARE(names.last(), QStringLiteral("SESSION_END"));
        QCOMPARE(names.count("SESSION_END"), 1);
        QVERIFY(!events.front().session_action().with_glintcode_enabled());
    }

    void refusedUploadsKeepTheEvents()
    {
        HttpFixture backend;
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), backend.url("/analytics"), folder.path(), 200, 600000);
        rig.start();
        int attempts = 0;
        for (const int status : {500, 429}) {
            backend.route("/analytics", status, "{}");
            rig.send(ActionType::OpenSettingsPage);
            ++attempts;
            QVERIFY(waitFor([&] {
                return backend.count("/analytics") == attempts && rig.service->inFlightCount() == 0 &&
                       rig.service->pendingCount() == size_t(attempts);
            }));
            QTest::qWait(300); // the throttle interval ends
        }
        QCOMPARE(rig.service->pendingCount(), size_t(2));
        backend.route("/analytics", 200, "{}");
        const int before = backend.received().size();
        rig.send(ActionType::NotifySearchOpened);
        QVERIFY(
            waitFor([&] { return rig.service->pendingCount() == 0 && rig.service->inFlightCount() == 0; }));
        QCOMPARE(backend.received().size(), before + 1);
        const auto &last = backend.received().last();
        QCOMPARE(last.headers.value("content-type"), QByteArray("application/octet-stream"));
        QCOMPARE(namesOf(decodeBatch(last.body)),
                 QStringList({"SETTINGS_OPEN", "SETTINGS_OPEN", "SEARCH_OPEN"}));
    }

    void switchedOffNothingIsQueuedOrSent()
    {
        HttpFixture backend;
        backend.route("/analytics", 200, "{}");
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), backend.url("/analytics"), folder.path(), 100);
        rig.start();
        backend.route("/analytics", 500, "{}");
        rig.send(ActionType::OpenSettingsPage);
        QVERIFY(waitFor([&] { return QFile::exists(rig.service->queuePath()); }));
        rig.service->setEnabled(false); // what was waiting goes too
        QVERIFY(!QFile::exists(rig.service->queuePath()));
        const int before = backend.received().size();
        rig.send(ActionType::Started);
        rig.send(ActionType::OpenSettingsPage);
        rig.send(ActionType::TwitchUserAuthorized);
        QTest::qWait(500);
        QCOMPARE(backend.received().size(), before);
        QCOMPARE(rig.service->pendingCount(), size_t(0));
        rig.dispatcher->stop();
        rig.running = false;
        QVERIFY(!QFile::exists(rig.service->queuePath()));
        // The state still followed the stream while off.
        QVERIFY(rig.middleware->twitchAuthorized());
    }

    void queueIsBounded()
    {
        HttpFixture backend;
        backend.route("/analytics", 500, "{}");
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), backend.url("/analytics"), folder.path(), 600000);
        rig.start();
        for (size_t i = 0; i < AnalyticsService::kMaxPendingEvents + 25; ++i) {
            Event event;
            event.mutable_user_action()->mutable_glintcamera_event_base()->set_client_ts(qint64(i));
            rig.service->addEvent(event);
        }
        QVERIFY(waitFor([&] { return rig.service->inFlightCount() == 0; }));
        QCOMPARE(rig.service->pendingCount(), AnalyticsService::kMaxPendingEvents);
        rig.dispatcher->stop();
        rig.running = false;
        // The oldest went; the newest are on disk.
        std::vector<Event> stored;
        AnalyticsQueueFile::load(rig.service->queuePath(), stored, 100000);
        QCOMPARE(stored.size(), AnalyticsService::kMaxPendingEvents);
        QCOMPARE(stored.back().user_action().glintcamera_event_base().client_ts(),
                 qint64(AnalyticsService::kMaxPendingEvents + 24));
        QCOMPARE(stored.front().user_action().glintcamera_event_base().client_ts(), qint64(25));
    }
};

QTEST_MAIN(TestAnalytics)
#include "tst_analytics.moc"
