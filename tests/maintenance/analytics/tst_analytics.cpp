// Usage analytics end to end: actions go through the real dispatcher and the
// analytics middleware, the service uploads batches to the real lens server
// (or to a fixture for answers the server would not give), and the test
// decodes what the server stored with the event schema. The queue file meets
// whatever is on the disk: every complete record before a fault is kept, the
// fault is named, and nothing large is allocated.
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <actiontypes.h>
#include <analyticsmiddleware.h>
#include <analyticsqueuefile.h>
#include <analyticsservice.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <google/protobuf/message.h>
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
// a backend base (the analytics endpoint is <base>/analytics).
struct Rig
{
    Rig(const QString &baseUrl, const QString &folder, int throttleMs = 300, qint64 flushMs = 600000)
        : network(baseUrl, [] { return kInstallation; })
    {
        qputenv("GLINT_ANALYTICS_URL", (baseUrl + "/analytics").toUtf8());
        service =
            std::make_shared<AnalyticsService>(&network, folder, kInstallation, nullptr, throttleMs, flushMs);
        dispatcher->addMiddleware(std::make_shared<AnalyticsMiddleware>(service));
        dispatcher->addStore(store);
        dispatcher->start();
    }
    ~Rig() { stop(); }
    void stop()
    {
        if (running)
            dispatcher->stop();
        running = false;
    }
    void send(ActionType type, const QVariant &payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), payload));
    }
    bool settled(size_t pending = 0) const
    {
        return waitFor([&] { return service->pendingCount() == pending && service->inFlightCount() == 0; });
    }

    NetworkManager network;
    std::shared_ptr<AnalyticsService> service;
    std::shared_ptr<Bureau::Dispatcher> dispatcher = std::make_shared<Bureau::Dispatcher>();
    std::shared_ptr<CollectingStore> store = std::make_shared<CollectingStore>();
    bool running = true;
};

QVariant lensCommand(const QString &lensId, LensActionContext context, bool enabled = false)
{
    LensCommand command;
    command.lensId = lensId;
    command.context = context;
    command.enabled = enabled;
    return QVariant::fromValue(command);
}

// The action inside an event; its field 1 is the base, field 2 its kind.
const google::protobuf::Message &actionOf(const Event &event)
{
    const auto *reflection = event.GetReflection();
    return reflection->GetMessage(
        event, reflection->GetOneofFieldDescriptor(event, event.GetDescriptor()->oneof_decl(0)));
}

const Gale::GlintcameraEventBase &baseOf(const Event &event)
{
    const auto &action = actionOf(event);
    return static_cast<const Gale::GlintcameraEventBase &>(
        action.GetReflection()->GetMessage(action, action.GetDescriptor()->field(0)));
}

QString nameOf(const Event &event)
{
    const auto &action = actionOf(event);
    const auto *kind = action.GetDescriptor()->field(1);
    return kind->type() == google::protobuf::FieldDescriptor::TYPE_ENUM
               ? QString::fromStdString(action.GetReflection()->GetEnum(action, kind)->name())
               : QStringLiteral("STREAM");
}

QString namesOf(const std::vector<Event> &events)
{
    QStringList names;
    for (const Event &event : events)
        names << nameOf(event);
    return names.join(' ');
}

// Every event the lens server stored, decoded, in arrival order; the size
// of each batch in batchSizes when asked.
std::vector<Event> storedEvents(const LensServerProcess &server, QList<size_t> *batchSizes = nullptr)
{
    std::vector<Event> all;
    SQLite::Database db((server.dataDir() + "/lenses.db").toStdString(), SQLite::OPEN_READONLY);
    SQLite::Statement rows(db, "SELECT body FROM analytics_batches ORDER BY id");
    while (rows.executeStep()) {
        const SQLite::Column body = rows.getColumn(0);
        Gale::GlintcameraEventBatch batch;
        if (!batch.ParseFromArray(body.getBlob(), body.getBytes()))
            batch.Clear();
        all.insert(all.end(), batch.events().begin(), batch.events().end());
        if (batchSizes)
            *batchSizes << size_t(batch.events().size());
    }
    return all;
}

Event userEvent(int n)
{
    Event event;
    event.mutable_user_action()->mutable_glintcamera_event_base()->set_client_ts(1000 + n);
    return event;
}

QByteArray sizeBytes(qint32 size)
{
    char bytes[4];
    qToLittleEndian<qint32>(size, bytes);
    return QByteArray(bytes, 4);
}

QByteArray record(const Event &event)
{
    const std::string bytes = event.SerializeAsString();
    return sizeBytes(qint32(bytes.size())) + QByteArray::fromStdString(bytes);
}

} // namespace

class TestAnalytics : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

    // Writes content as the queue file, loads it and returns the client
    // times of the events read.
    QList<qint64> load(const QByteArray &content, size_t max = 100000)
    {
        const QString path = dir.filePath(QStringLiteral("analytics.proto.bin"));
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(content);
        file.close();
        std::vector<Event> events;
        AnalyticsQueueFile::load(path, events, max);
        QList<qint64> times;
        for (const Event &event : events)
            times << event.user_action().glintcamera_event_base().client_ts();
        return times;
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void actionsBecomeTheRightEventsOnTheServer()
    {
        LensServerProcess server;
        QVERIFY(server.start());
        QTemporaryDir folder;
        Rig rig(server.baseUrl(), folder.path(), 400);
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

        QVERIFY(waitFor([&] { return storedEvents(server).size() >= 9; }));
        const std::vector<Event> events = storedEvents(server);
        QCOMPARE(namesOf(events), "SESSION_START TWITCH_LOGIN TWITCH_SETTINGS_OPEN LENS_ACTIVATION "
                                  "LENS_ADD_FAVORITES LENS_REMOVE_FAVORITES LENS_DOWNLOAD SETTINGS_OPEN "
                                  "LENS_COPY_LINK");
        // The throttle sent the start at once and the rest together.
        QList<size_t> batches;
        storedEvents(server, &batches);
        QCOMPARE(batches, (QList<size_t>{1, 8}));
        // Every action reached the store, unchanged.
        QCOMPARE(rig.store->actions.size(), 16);

        // The favourites count as the store reported it ("many" is no count).
        QCOMPARE(events[3].lens_action().num_lens_in_favorites(), 4);
        QCOMPARE(events[8].lens_action().num_lens_in_favorites(), 0);
        QCOMPARE(baseOf(events[3]).lens_id(), std::string("lens-b"));
        QCOMPARE(baseOf(events[6]).lens_id(), std::string("lens-c"));
        // Events that are not about a lens name the active one.
        QCOMPARE(baseOf(events[7]).lens_id(), std::string("lens-a"));
        QVERIFY(events[0].session_action().with_glintcode_enabled());
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (const Event &event : events) {
            const auto &base = baseOf(event);
            QCOMPARE(base.installation_id(), kInstallation.toStdString());
            QCOMPARE(base.app_session_id(), rig.service->sessionId().toStdString());
            QVERIFY(base.client_ts() > now - 60000 && base.client_ts() <= now);
        }
    }

    // Kept on disk while the server is down and sent exactly once when it
    // is back (by the flush timer, without new actions). A clean stop leaves
    // SESSION_END queued for the next run; a run that ends without its stop
    // is reported by the one after it.
    void queueSurvivesDowntimeAndRestartsAndAnUncleanEndIsReported()
    {
        LensServerProcess server;
        QVERIFY(server.start());
        server.stop();
        QTemporaryDir folder;
        QString firstSession, secondSession;
        {
            Rig first(server.baseUrl(), folder.path(), 300, 1500);
            first.send(ActionType::Started);
            first.send(ActionType::NotifyRecentsOpened);
            QVERIFY(first.settled(2));
            QVERIFY(QFile::exists(first.service->queuePath()));
            QVERIFY(server.start()); // same port
            QVERIFY(first.settled());
            QVERIFY(waitFor([&] { return storedEvents(server).size() == 2; }));
            QTest::qWait(1800);
            QCOMPARE(storedEvents(server).size(), size_t(2));
            QVERIFY(!QFile::exists(first.service->queuePath()));
            server.stop();
            firstSession = first.service->sessionId();
        } // a clean stop: SESSION_END joins the queue on disk
        QVERIFY(QFile::exists(folder.filePath("analytics.proto.bin")));
        QVERIFY(!QFile::exists(folder.filePath("analytics.session")));

        QVERIFY(server.start());
        {
            Rig second(server.baseUrl(), folder.path());
            QVERIFY(waitFor([&] { return storedEvents(server).size() == 3; }));
            QVERIFY(!QFile::exists(folder.filePath("analytics.proto.bin")));
            secondSession = second.service->sessionId();
            second.running = false; // this run ends without its stop, as in a crash
        }
        QVERIFY(QFile::exists(folder.filePath("analytics.session")));
        const std::vector<Event> before = storedEvents(server);
        QCOMPARE(namesOf(before), QStringLiteral("SESSION_START RECENTS_OPEN SESSION_END"));
        for (const Event &event : before)
            QCOMPARE(baseOf(event).app_session_id(), firstSession.toStdString());

        Rig third(server.baseUrl(), folder.path());
        QVERIFY(waitFor([&] { return storedEvents(server).size() == 4; }));
        const Event crash = storedEvents(server).back();
        QCOMPARE(nameOf(crash), QStringLiteral("SESSION_CRASH"));
        QCOMPARE(baseOf(crash).app_session_id(), secondSession.toStdString());
    }

    // Switched off, what waits (after a refused upload) is dropped and
    // nothing more is queued or sent.
    void switchedOffNothingIsKeptOrSent()
    {
        HttpFixture backend;
        backend.route("/vc/v1/analytics", 429, "{}");
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), folder.path(), 200);
        rig.send(ActionType::OpenSettingsPage);
        QVERIFY(waitFor([&] { return backend.count("/vc/v1/analytics") == 1; }));
        QVERIFY(rig.settled(1) && QFile::exists(rig.service->queuePath()));
        rig.service->setEnabled(false);
        QVERIFY(!QFile::exists(rig.service->queuePath()));
        rig.send(ActionType::TwitchUserAuthorized);
        QTest::qWait(500);
        QCOMPARE(backend.received().size(), 1);
        rig.stop();
        QVERIFY(!QFile::exists(rig.service->queuePath()));
    }

    void queueIsBounded()
    {
        HttpFixture backend;
        backend.route("/vc/v1/analytics", 500, "{}");
        QTemporaryDir folder;
        Rig rig(backend.url("/vc/v1"), folder.path(), 600000);
        for (size_t i = 0; i < AnalyticsService::kMaxPendingEvents + 25; ++i)
            rig.service->addEvent(userEvent(int(i)));
        QVERIFY(rig.settled(AnalyticsService::kMaxPendingEvents));
        rig.stop();
        // The oldest went; the newest are on disk, read back in order and
        // no more than asked for.
        std::vector<Event> stored, firstTwo;
        AnalyticsQueueFile::load(rig.service->queuePath(), stored, 100000);
        AnalyticsQueueFile::load(rig.service->queuePath(), firstTwo, 2);
        QCOMPARE(firstTwo.size(), size_t(2));
        QCOMPARE(firstTwo[1].user_action().glintcamera_event_base().client_ts(), qint64(1026));
        QCOMPARE(stored.size(), AnalyticsService::kMaxPendingEvents);
        QCOMPARE(stored.back().user_action().glintcamera_event_base().client_ts(),
                 qint64(AnalyticsService::kMaxPendingEvents + 1024));
        QCOMPARE(stored.front().user_action().glintcamera_event_base().client_ts(), qint64(1025));
        QVERIFY(load(QByteArray()).isEmpty()); // an empty queue is no fault
        QVERIFY(!AnalyticsQueueFile::store(dir.filePath(QStringLiteral("no/such/folder/q.bin")), stored));
    }
    void brokenFilesKeepEveryCompleteRecord_data()
    {
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("third"); // reading goes on after the fault
        const QByteArray whole = record(userEvent(9));
        const QByteArray junk("\xff\xff\xff\xff\x0f", 5);
        const qint32 limit = AnalyticsQueueFile::kMaxRecordBytes + 1;
        QTest::newRow("cut in a size") << whole.left(2) << "Failed to read analytics message size" << false;
        QTest::newRow("cut in the data")
            << whole.left(whole.size() - 3) << "Failed to read analytics message data" << false;
        QTest::newRow("size -1") << sizeBytes(-1) + QByteArray(16, 'x')
                                 << "Failed to read analytics message size" << false;
        QTest::newRow("size beyond one record's limit")
            << sizeBytes(limit) + QByteArray(limit, 0) << "Failed to read analytics message data" << false;
        QTest::newRow("framed, but no event") << sizeBytes(junk.size()) + junk + record(userEvent(3))
                                              << "Failed to parse stored analytics event" << true;
    }
    void brokenFilesKeepEveryCompleteRecord()
    {
        QFETCH(QByteArray, tail);
        QFETCH(QString, message);
        QFETCH(bool, third);
        MessageCapture log("glint.analytics");
        const QList<qint64> expected = third ? QList<qint64>{1001, 1002, 1003} : QList<qint64>{1001, 1002};
        QCOMPARE(load(record(userEvent(1)) + record(userEvent(2)) + tail), expected);
        QCOMPARE(log.messages().size(), 1);
        QVERIFY2(log.messages().first().startsWith(message), qPrintable(log.messages().first()));
    }
};

QTEST_MAIN(TestAnalytics)
#include "tst_analytics.moc"
