#include <QSignalSpy>
#include <QtTest>
#include <dispatcher.h>

using namespace Bureau;

namespace {

using Log = QStringList;

class RecordingStore : public BaseStore
{
public:
    RecordingStore(QString name, Log &log, bool startLater = false)
        : m_name(std::move(name)), m_log(log), m_startLater(startLater)
    {}
    std::function<void(const Action &)> onProcess;

    void process(std::shared_ptr<Action> action) override
    {
        m_log << QStringLiteral("%1:%2").arg(m_name).arg(action->type);
        if (onProcess)
            onProcess(*action);
    }
    void start() override
    {
        if (!m_startLater)
            emit started();
    }
    void stop() override { emit stopped(); }

private:
    QString m_name;
    Log &m_log;
    bool m_startLater;
};

class RecordingMiddleware : public Middleware
{
public:
    RecordingMiddleware(QString name, Log &log, int replaceWith = -1)
        : m_name(std::move(name)), m_log(log), m_replaceWith(replaceWith)
    {}
    std::shared_ptr<Action> process(std::shared_ptr<Action> action) override
    {
        m_log << QStringLiteral("%1:%2").arg(m_name).arg(action->type);
        if (m_replaceWith >= 0)
            return std::make_shared<Action>(m_replaceWith);
        return action;
    }

private:
    QString m_name;
    Log &m_log;
    int m_replaceWith;
};

} // namespace

class TestDispatcher : public QObject
{
    Q_OBJECT
private slots:
    void middlewaresThenStoresInRegistrationOrder()
    {
        Log log;
        Dispatcher dispatcher;
        dispatcher.addStore(std::make_shared<RecordingStore>("s1", log));
        dispatcher.addMiddleware(std::make_shared<RecordingMiddleware>("m1", log));
        dispatcher.addStore(std::make_shared<RecordingStore>("s2", log));
        dispatcher.addMiddleware(std::make_shared<RecordingMiddleware>("m2", log));
        dispatcher.start();
        QCOMPARE(dispatcher.state(), Dispatcher::Started);
        dispatcher.dispatch(new Action(1));
        dispatcher.dispatch(new Action(2));
        QVERIFY(log.isEmpty()); // never processed inside dispatch
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"m1:1", "m2:1", "s1:1", "s2:1", "m1:2", "m2:2", "s1:2", "s2:2"}));
    }

    void reentrantDispatchIsAppendedNotNested()
    {
        Log log;
        Dispatcher dispatcher;
        auto first = std::make_shared<RecordingStore>("a", log);
        dispatcher.addStore(first);
        dispatcher.addStore(std::make_shared<RecordingStore>("b", log));
        first->onProcess = [&](const Action &action) {
            if (action.type == 1)
                dispatcher.dispatch(new Action(7));
        };
        dispatcher.start();
        dispatcher.dispatch(new Action(1));
        dispatcher.dispatch(new Action(2));
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"a:1", "b:1", "a:2", "b:2", "a:7", "b:7"}));
    }

    void storesSeeTheMiddlewaresReplacement()
    {
        Log log;
        Dispatcher dispatcher;
        dispatcher.addMiddleware(std::make_shared<RecordingMiddleware>("m1", log, 42));
        dispatcher.addMiddleware(std::make_shared<RecordingMiddleware>("m2", log));
        dispatcher.addStore(std::make_shared<RecordingStore>("s", log));
        dispatcher.start();
        dispatcher.dispatch(new Action(3));
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"m1:3", "m2:42", "s:42"}));
    }

    void emptyDispatcherStartsAndStopsInsideTheCalls()
    {
        Dispatcher dispatcher;
        QSignalSpy started(&dispatcher, &Dispatcher::started);
        QSignalSpy stopped(&dispatcher, &Dispatcher::stopped);
        dispatcher.start();
        QCOMPARE(started.count(), 1);
        QCOMPARE(dispatcher.state(), Dispatcher::Started);
        dispatcher.stop();
        QCOMPARE(stopped.count(), 1);
        QCOMPARE(dispatcher.state(), Dispatcher::Stopped);
    }

    void lateStartKeepsDispatcherStartingAndQueueWaiting()
    {
        Log log;
        Dispatcher dispatcher;
        auto late = std::make_shared<RecordingStore>("late", log, true);
        dispatcher.addStore(late);
        QSignalSpy started(&dispatcher, &Dispatcher::started);
        dispatcher.start();
        QCOMPARE(dispatcher.state(), Dispatcher::Starting);
        dispatcher.dispatch(new Action(5));
        QCoreApplication::processEvents();
        QVERIFY(log.isEmpty());
        emit late->started();
        QCOMPARE(dispatcher.state(), Dispatcher::Started);
        QCOMPARE(started.count(), 1);
        // The action waits for the next delivery; it then drains in order.
        QVERIFY(log.isEmpty());
        dispatcher.dispatch(new Action(6));
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"late:5", "late:6"}));
    }

    void actionsBeforeStartAreProcessedAfterIt()
    {
        Log log;
        Dispatcher dispatcher;
        dispatcher.addStore(std::make_shared<RecordingStore>("s", log));
        dispatcher.dispatch(new Action(9));
        dispatcher.start();
        QVERIFY(log.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"s:9"}));
    }

    void stopDrainsQueueAndLaterActionsAreNeverProcessed()
    {
        Log log;
        Dispatcher dispatcher;
        dispatcher.addStore(std::make_shared<RecordingStore>("s", log));
        dispatcher.start();
        dispatcher.dispatch(new Action(1));
        dispatcher.stop();
        QCOMPARE(log, Log({"s:1"}));
        dispatcher.dispatch(new Action(2));
        QCoreApplication::processEvents();
        QCOMPARE(log, Log({"s:1"}));
        QCOMPARE(dispatcher.state(), Dispatcher::Stopped);
    }

    void dispatchFromAnotherThreadIsProcessedOnTheDispatchersThread()
    {
        Log log;
        Dispatcher dispatcher;
        auto store = std::make_shared<RecordingStore>("s", log);
        QThread *processingThread = nullptr;
        store->onProcess = [&](const Action &) { processingThread = QThread::currentThread(); };
        dispatcher.addStore(store);
        dispatcher.start();
        QThread *worker = QThread::create([&] {
            for (int i = 0; i < 100; ++i)
                dispatcher.dispatch(new Action(i));
        });
        worker->start();
        worker->wait();
        delete worker;
        QTRY_COMPARE(log.size(), 100);
        QCOMPARE(processingThread, QThread::currentThread());
        for (int i = 0; i < 100; ++i)
            QCOMPARE(log[i], QStringLiteral("s:%1").arg(i));
    }
};

QTEST_GUILESS_MAIN(TestDispatcher)
#include "tst_dispatcher.moc"
