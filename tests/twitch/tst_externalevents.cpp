// The external events listener and store with real TCP clients on loopback:
// how TCP really cuts messages, and clients that misbehave.
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <actionprovider.h>
#include <actiontypes.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <externalevent.h>
#include <externaleventslistener.h>
#include <externaleventsstore.h>
#include <messagecapture.h>
#include <metatypes.h>

using namespace VCam;

namespace {

using Event = QPair<QByteArray, QByteArray>;

qint64 residentKiB()
{
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    return 0;
}

// A client that sends bytes and lets the event loop run until they are out.
struct Client
{
    QTcpSocket socket;
    bool connect(quint16 port)
    {
        socket.connectToHost(QHostAddress::LocalHost, port);
        return socket.waitForConnected(3000);
    }
    void send(const QByteArray &bytes)
    {
        socket.write(bytes);
        while (socket.bytesToWrite() > 0 && socket.state() == QAbstractSocket::ConnectedState)
            socket.waitForBytesWritten(1000);
    }
    bool closedByPeer(int timeoutMs = 5000)
    {
        QElapsedTimer clock;
        clock.start();
        while (socket.state() == QAbstractSocket::ConnectedState && clock.elapsed() < timeoutMs) {
            socket.waitForReadyRead(50);
            QCoreApplication::processEvents();
        }
        return socket.state() != QAbstractSocket::ConnectedState;
    }
};

} // namespace

class TestExternalEvents : public QObject
{
    Q_OBJECT
    ExternalEventsListener *listener = nullptr;
    QList<Event> events;
    std::unique_ptr<MessageCapture> log;

    // A listener on a free port with the given limits.
    void makeListener(ExternalEventsListener::Limits limits = {})
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        const quint16 port = probe.serverPort();
        probe.close();
        delete listener;
        listener = new ExternalEventsListener(port, limits);
        connect(listener, &ExternalEventsListener::externalEventReceived, this,
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
        delete listener;
        listener = nullptr;
        log.reset();
    }

    void messagesAsTcpCutsThem()
    {
        Client client;
        QVERIFY(client.connect(listener->port()));
        // One object per chunk, as simple senders do.
        client.send("{\"type\":\"trigger1\"}");
        QVERIFY(waitForEvents(1));
        // Several in one chunk, newline-delimited and back to back, with
        // braces and quotes inside strings.
        client.send("{\"type\":\"donate\",\"data\":{\"user_name\":\"a}n\\\"n\",\"amount\":100}}\n"
                    "{\"type\":\"subscribe\",\"data\":[1,{\"x\":\"{\"}]}{\"type\":\"t\",\"data\":null}\n");
        QVERIFY(waitForEvents(4));
        // One object split over many chunks, a byte at a time.
        const QByteArray split = "{\"type\":\"split\", \"data\": {\"n\": 7}}";
        for (char byte : split) {
            client.send(QByteArray(1, byte));
            QTest::qWait(2);
        }
        QVERIFY(waitForEvents(5));

        QCOMPARE(events.at(0), Event("trigger1", ""));
        QCOMPARE(events.at(1), Event("donate", "{\"amount\":100,\"user_name\":\"a}n\\\"n\"}"));
        QCOMPARE(events.at(2), Event("subscribe", "[1,{\"x\":\"{\"}]"));
        QCOMPARE(events.at(3), Event("t", "null"));
        QCOMPARE(events.at(4), Event("split", "{\"n\":7}"));
        QCOMPARE(listener->connectionCount(), 1);
    }

    void commandLineSenderDeliversItsEvent()
    {
        QProcess tool;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("GLINT_EVENT_PORT", QString::number(listener->port()));
        tool.setProcessEnvironment(environment);
        tool.start(GLINT_EVENT_TOOL, {"donate", "{\"user_name\":\"ann\",\"amount\":100}"});
        QVERIFY(tool.waitForStarted());
        QVERIFY(waitForEvents(1));
        QVERIFY(tool.state() == QProcess::NotRunning || tool.waitForFinished(5000));
        QCOMPARE(tool.exitCode(), 0);
        tool.start(GLINT_EVENT_TOOL, {"subscribe", "ann"}); // a plain word is sent as a string
        QVERIFY(waitForEvents(2));
        QVERIFY(tool.state() == QProcess::NotRunning || tool.waitForFinished(5000));
        QCOMPARE(events.at(0), Event("donate", "{\"amount\":100,\"user_name\":\"ann\"}"));
        QCOMPARE(events.at(1), Event("subscribe", "\"ann\""));

        delete listener; // nobody listens: a clear failure
        listener = nullptr;
        tool.start(GLINT_EVENT_TOOL, {"trigger1"});
        QVERIFY(tool.state() == QProcess::NotRunning || tool.waitForFinished(5000));
        QCOMPARE(tool.exitCode(), 1);
        QVERIFY(tool.readAllStandardError().contains("not listening"));
    }

    void badMessagesAreDroppedAndTheConnectionStays()
    {
        Client client;
        QVERIFY(client.connect(listener->port()));
        client.send("hello, this is not JSON\n");
        client.send("{\"type\": 7, \"data\": \"number type\"}");
        client.send("{\"data\": \"no type\"}");
        client.send("{\"type\": \"broken\", \"data\": [1,2}");
        client.send("{not json at all}\n");
        client.send("{\"type\":\"after\"}");
        QVERIFY(waitForEvents(1));
        QTest::qWait(100);
        QCOMPARE(events, QList<Event>{Event("after", "")});
        QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
        // Each cause is logged once, however often it comes.
        client.send("{\"type\": 8}{\"type\": 9}{\"type\":\"last\"}");
        QVERIFY(waitForEvents(2));
        QCOMPARE(log->count("is not a string"), 1);
        QCOMPARE(log->count("does not parse"), 1);
    }

    void hugeMessageClosesItsConnectionOnly()
    {
        Client huge;
        QVERIFY(huge.connect(listener->port()));
        // 10 MiB inside one object's string.
        QByteArray message = "{\"type\":\"huge\",\"data\":\"";
        message.append(QByteArray(10 * 1024 * 1024, 'x'));
        message.append("\"}");
        huge.socket.write(message); // the client's own copy is counted from here on
        const qint64 before = residentKiB();
        QVERIFY(huge.closedByPeer(10000));
        QVERIFY(events.isEmpty());
        QVERIFY2(residentKiB() - before < 16 * 1024, "memory grew with the message");

        Client next;
        QVERIFY(next.connect(listener->port()));
        next.send("{\"type\":\"fine\"}");
        QVERIFY(waitForEvents(1));
        QCOMPARE(log->count("larger than 65536 bytes"), 1);
    }

    void silentConnectionsCannotLockOthersOut()
    {
        const qint64 before = residentKiB();
        std::vector<std::unique_ptr<QTcpSocket>> idle;
        for (int i = 0; i < 1000; ++i) {
            auto socket = std::make_unique<QTcpSocket>();
            socket->connectToHost(QHostAddress::LocalHost, listener->port());
            idle.push_back(std::move(socket));
            if (i % 50 == 0)
                QCoreApplication::processEvents();
        }
        QTest::qWait(1500);
        QVERIFY(listener->connectionCount() <= 16);
        // A client that sends gets its event through, the silent ones
        // making room.
        Client client;
        QVERIFY(client.connect(listener->port()));
        client.send("{\"type\":\"through the crowd\"}");
        QVERIFY(waitForEvents(1, 10000));
        QVERIFY(listener->connectionCount() <= 16);
        QVERIFY2(residentKiB() - before < 16 * 1024, "memory grew with the connections");
        QVERIFY(log->count("connection") <= 2);
    }

    void slowClientIsCutOff()
    {
        ExternalEventsListener::Limits limits;
        limits.messageTimeoutMs = 1500;
        makeListener(limits);
        Client slow;
        QVERIFY(slow.connect(listener->port()));
        const QByteArray message = "{\"type\":\"slow\"}";
        QElapsedTimer clock;
        clock.start();
        int sent = 0;
        // One byte a second (sped up: every 400 ms) never finishes in time.
        while (slow.socket.state() == QAbstractSocket::ConnectedState && sent < message.size() &&
               clock.elapsed() < 10000) {
            slow.send(message.mid(sent++, 1));
            QTest::qWait(400);
        }
        QVERIFY(slow.closedByPeer(3000));
        QVERIFY(sent < message.size());
        QVERIFY(events.isEmpty());
        QCOMPARE(log->count("took longer than"), 1);
    }

    void steadyStreamIsNotMistakenForASlowClient()
    {
        ExternalEventsListener::Limits limits;
        limits.messageTimeoutMs = 600;
        makeListener(limits);
        Client client;
        QVERIFY(client.connect(listener->port()));
        // Every write ends inside a message, for longer than the limit; yet
        // each message completes quickly.
        QElapsedTimer clock;
        clock.start();
        int sent = 0;
        client.send("{\"type\":");
        while (clock.elapsed() < 2000) {
            client.send("\"b\"}{\"type\":");
            ++sent;
            QTest::qWait(20);
        }
        QVERIFY(waitForEvents(sent));
        QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    }

    // The store starts listening once the program has started and turns
    // what arrives into actions; a port that is taken is logged and the
    // rest of the program runs on.
    void storeListensAfterStartAndDispatchesEvents_data()
    {
        QTest::addColumn<bool>("portTaken");
        QTest::newRow("free port") << false;
        QTest::newRow("port taken") << true;
    }
    void storeListensAfterStartAndDispatchesEvents()
    {
        QFETCH(bool, portTaken);
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::LocalHost, 0));
        const quint16 port = squatter.serverPort();
        if (!portTaken)
            squatter.close();
        auto dispatcher = std::make_shared<Bureau::Dispatcher>();
        auto provider = std::make_shared<ActionProvider>(dispatcher);
        auto store = std::make_shared<ExternalEventsStore>(provider, new ExternalEventsListener(port, {}));
        auto collector = std::make_shared<CollectingStore>();
        dispatcher->addStore(store);
        dispatcher->addStore(collector);
        dispatcher->start();
        QVERIFY(!store->listener()->isListening());
        provider->notifyStarted();
        provider->openSettingsPage();
        QTRY_COMPARE_WITH_TIMEOUT(collector->ofType(ActionType::OpenSettingsPage).size(), 1, 5000);
        if (portTaken) {
            QVERIFY(!store->listener()->isListening());
            QCOMPARE(log->count("ExternalEventsListener::startListen failed"), 1);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(store->listener()->isListening(), 5000);
            Client client;
            QVERIFY(client.connect(port));
            client.send("{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}");
            QTRY_COMPARE_WITH_TIMEOUT(collector->ofType(ActionType::ExternalEvent).size(), 1, 5000);
            const auto event =
                collector->ofType(ActionType::ExternalEvent).first()->payload.value<ExternalEvent>();
            QCOMPARE(event.type, QByteArray("donate"));
            QCOMPARE(event.data, QByteArray("{\"amount\":100,\"user_name\":\"ann\"}"));
        }
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(5000));
    }
};

QTEST_MAIN(TestExternalEvents)
#include "tst_externalevents.moc"
