// The external events listener with real TCP clients on loopback: how TCP
// really cuts messages, clients that misbehave, and an event that reaches the running lens (the sample lens
// that reacts to stream events draws coins into the camera's frames).
#include <QDir>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <actionprovider.h>
#include <cameralist.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <externaleventslistener.h>
#include <externaleventsstore.h>
#include <lenscommand.h>
#include <messagecapture.h>
#include <metatypes.h>

using namespace VCam;

namespace {

using Event = QPair<QByteArray, QByteArray>;

qint64 residentKiB()
{
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmRSS:") + 6).trimmed().split(' ').first().toLongLong();
}

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// A client that sends bytes and lets the event loop run until they are out.
struct Client
{
    explicit Client(quint16 port)
    {
        socket.connectToHost(QHostAddress::LocalHost, port);
        socket.waitForConnected(3000);
    }
    bool connected() const { return socket.state() == QAbstractSocket::ConnectedState; }
    void send(const QByteArray &bytes)
    {
        socket.write(bytes);
        while (socket.bytesToWrite() > 0 && connected())
            socket.waitForBytesWritten(1000);
    }
    bool closedByPeer(int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return !connected(); }, timeoutMs);
    }
    QTcpSocket socket;
};

// Share of pixels that are coin gold.
double gold(const QImage &frame)
{
    int count = 0, total = 0;
    for (int y = 0; y < frame.height(); y += 4) {
        for (int x = 0; x < frame.width(); x += 4, ++total) {
            const QColor c = frame.pixelColor(x, y);
            count += c.red() > 190 && c.green() > 130 && c.blue() < 80;
        }
    }
    return total ? double(count) / total : -1;
}

} // namespace

class TestExternalEvents : public QObject
{
    Q_OBJECT
    std::unique_ptr<ExternalEventsListener> listener;
    QList<Event> events;
    std::unique_ptr<MessageCapture> log;

    // A listener on a free port with the given limits.
    void makeListener(ExternalEventsListener::Limits limits = {})
    {
        listener = std::make_unique<ExternalEventsListener>(freePort(), limits);
        connect(listener.get(), &ExternalEventsListener::externalEventReceived, this,
                [this](const QByteArray &type, const QByteArray &data) {
                    events.append({type, data});
                });
        QVERIFY(listener->startListen());
    }
    bool waitForEvents(int count, int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return events.size() >= count; }, timeoutMs);
    }

private slots:
    void initTestCase() { registerMetaTypes(); }
    void init()
    {
        events.clear();
        log = std::make_unique<MessageCapture>();
        makeListener();
    }
    void cleanup()
    {
        listener.reset();
        log.reset();
    }

    void messagesAsTcpCutsThem()
    {
        Client client(listener->port());
        // One object per chunk, as simple senders do.
        client.send("{\"type\":\"trigger1\"}");
        QVERIFY(waitForEvents(1));
        // Several in one chunk, newline-delimited and back to back, with
        // braces and quotes inside strings.
        client.send("{\"type\":\"donate\",\"data\":{\"user_name\":\"a}n\\\"n\",\"amount\":100}}\n"
                    "{\"type\":\"subscribe\",\"data\":[1,{\"x\":\"{\"}]}{\"type\":\"t\",\"data\":null}\n");
        QVERIFY(waitForEvents(4));
        // One object split over many chunks, a byte at a time.
        for (char byte : QByteArray("{\"type\":\"split\", \"data\": {\"n\": 7}}")) {
            client.send(QByteArray(1, byte));
            QTest::qWait(2);
        }
        QVERIFY(waitForEvents(5));
        QCOMPARE(events, (QList<Event>{{"trigger1", ""},
                                       {"donate", "{\"amount\":100,\"user_name\":\"a}n\\\"n\"}"},
                                       {"subscribe", "[1,{\"x\":\"{\"}]"},
                                       {"t", "null"},
                                       {"split", "{\"n\":7}"}}));
        QCOMPARE(listener->connectionCount(), 1);
    }

    void badMessagesAreDroppedAndTheConnectionStays()
    {
        Client client(listener->port());
        for (const char *bad :
             {"hello, this is not JSON\n", "{\"type\": 7, \"data\": \"number type\"}",
              "{\"data\": \"no type\"}", "{\"type\": \"broken\", \"data\": [1,2}", "{not json at all}\n"})
            client.send(bad);
        client.send("{\"type\":\"after\"}");
        QVERIFY(waitForEvents(1));
        // Each cause is logged once, however often it comes.
        client.send("{\"type\": 8}{\"type\": 9}{\"type\":\"last\"}");
        QVERIFY(waitForEvents(2));
        QCOMPARE(events, (QList<Event>{{"after", ""}, {"last", ""}}));
        QVERIFY(client.connected());
        QCOMPARE(log->count("is not a string"), 1);
        QCOMPARE(log->count("does not parse"), 1);
    }

    void hugeMessageClosesItsConnectionOnly()
    {
        Client huge(listener->port());
        // 10 MiB inside one object's string.
        huge.socket.write("{\"type\":\"huge\",\"data\":\"" + QByteArray(10 * 1024 * 1024, 'x') + "\"}");
        const qint64 before = residentKiB(); // the client's own copy is counted from here on
        QVERIFY(huge.closedByPeer(10000));
        QVERIFY(events.isEmpty());
        QVERIFY2(residentKiB() - before < 16 * 1024, "memory grew with the message");
        Client next(listener->port());
        next.send("{\"type\":\"fine\"}");
        QVERIFY(waitForEvents(1));
        QCOMPARE(log->count("larger than 65536 bytes"), 1);
    }

    // Silent connections cannot lock others out, nor make memory grow; a
    // second listener on a port in use fails clearly.
    void silentConnectionsAndTakenPort()
    {
        const qint64 before = residentKiB();
        std::vector<std::unique_ptr<QTcpSocket>> idle;
        for (int i = 0; i < 1000; ++i) {
            idle.push_back(std::make_unique<QTcpSocket>());
            idle.back()->connectToHost(QHostAddress::LocalHost, listener->port());
            if (i % 50 == 0)
                QCoreApplication::processEvents();
        }
        QTest::qWait(1500);
        QVERIFY(listener->connectionCount() <= 16);
        Client client(listener->port());
        client.send("{\"type\":\"through the crowd\"}");
        QVERIFY(waitForEvents(1, 10000));
        QVERIFY(listener->connectionCount() <= 16);
        QVERIFY2(residentKiB() - before < 16 * 1024, "memory grew with the connections");
        QVERIFY(log->count("connection") <= 2);

        ExternalEventsListener second(listener->port(), {});
        QVERIFY(!second.startListen() && !second.isListening());
        QCOMPARE(log->count("ExternalEventsListener::startListen failed"), 1);
    }

    // A message that trickles in slower than the limit is cut off; a steady
    // stream whose every write ends inside a message is not.
    void slowClientIsCutOffSteadyStreamIsNot()
    {
        makeListener({64 * 1024, 16, 1500, 60000});
        Client slow(listener->port());
        const QByteArray message = "{\"type\":\"slow\"}";
        int sent = 0;
        while (slow.connected() && sent < message.size()) {
            slow.send(message.mid(sent++, 1));
            QTest::qWait(400);
        }
        QVERIFY(slow.closedByPeer(3000));
        QVERIFY(sent < message.size() && events.isEmpty());
        QCOMPARE(log->count("took longer than"), 1);

        makeListener({64 * 1024, 16, 600, 60000});
        Client steady(listener->port());
        QElapsedTimer clock;
        clock.start();
        steady.send("{\"type\":");
        for (sent = 0; clock.elapsed() < 2000; ++sent) {
            steady.send("\"b\"}{\"type\":");
            QTest::qWait(20);
        }
        QVERIFY(waitForEvents(sent));
        QVERIFY(steady.connected());
    }

    // The store listens once the program has started; a donation from a
    // client makes the sample lens draw coins.
    void eventFromAClientShowsInTheFrames()
    {
        listener.reset();
        auto dispatcher = std::make_shared<Bureau::Dispatcher>();
        auto provider = std::make_shared<ActionProvider>(dispatcher);
        auto core = std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }));
        auto store =
            std::make_shared<ExternalEventsStore>(provider, new ExternalEventsListener(freePort(), {}));
        dispatcher->addStore(core);
        dispatcher->addStore(store);
        QSignalSpy started(dispatcher.get(), &Bureau::Dispatcher::started);
        dispatcher->start();
        QVERIFY(started.wait(10000) || dispatcher->state() == Bureau::Dispatcher::Started);
        QVERIFY(!store->listener()->isListening());
        provider->notifyStarted();
        provider->setCamera(CameraList::demoCameraName());
        LensCommand lens;
        lens.lensId = "stream-cheers";
        lens.text = QStringLiteral(GLINT_LENSES_DIR "/stream-cheers");
        QSignalSpy trigger(core.get(), &CoreStore::triggerAvailableChanged);
        dispatcher->dispatch(
            new Bureau::Action(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(lens)));
        QVERIFY(trigger.wait(30000) && core->isTriggerAvailable());
        QTRY_VERIFY_WITH_TIMEOUT(store->listener()->isListening(), 5000);
        QSignalSpy frames(core.get(), &CoreStore::frameReady);
        QDir().mkpath(GLINT_ARTIFACTS_DIR);
        const auto frameAfter = [&](int ms, const char *name) {
            QTest::qWait(ms);
            frames.clear();
            QImage frame = frames.wait(20000) ? frames.last().first().value<QImage>() : QImage();
            frame.save(GLINT_ARTIFACTS_DIR "/external-event-" + QString(name) + ".png");
            return frame;
        };
        const double before = gold(frameAfter(300, "before"));
        Client client(store->listener()->port());
        client.send("{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}");
        const double coins = gold(frameAfter(1200, "donate"));
        QVERIFY2(before >= 0 && coins > before + 0.01,
                 qPrintable(QString("gold %1 -> %2").arg(before).arg(coins)));
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(10000));
    }
};

QTEST_MAIN(TestExternalEvents)
#include "tst_externalevents.moc"
