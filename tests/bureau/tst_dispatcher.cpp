#include <QSignalSpy>
#include <QtTest>
#include <dispatcher.h>

using namespace Bureau;
using Log = QStringList;

namespace {

// Logs "<name>:<type>" for each action; a store may start later than asked.
class RecordingStore : public BaseStore
{
public:
    RecordingStore(QString name, Log &log, bool startLater) : name(name), log(log), startLater(startLater) {}
    std::function<void(const Action &)> onProcess;
    void process(std::shared_ptr<Action> action) override
    {
        log << QStringLiteral("%1:%2").arg(name).arg(action->type);
        if (onProcess)
            onProcess(*action);
    }
    void start() override
    {
        if (!startLater)
            emit started();
    }
    void stop() override { emit stopped(); }
    QString name;
    Log &log;
    bool startLater;
};

// Logs like the store and, when asked to, turns action 2 into 42.
struct RecordingMiddleware : Middleware
{
    RecordingMiddleware(QString name, Log &log, bool replace) : name(name), log(log), replace(replace) {}
    std::shared_ptr<Action> process(std::shared_ptr<Action> action) override
    {
        log << QStringLiteral("%1:%2").arg(name).arg(action->type);
        return replace && action->type == 2 ? std::make_shared<Action>(42) : action;
    }
    QString name;
    Log &log;
    bool replace;
};

struct Rig
{
    Log log;
    Dispatcher dispatcher;
    std::shared_ptr<RecordingStore> store(const QString &name, bool startLater = false)
    {
        auto store = std::make_shared<RecordingStore>(name, log, startLater);
        dispatcher.addStore(store);
        return store;
    }
    void middleware(const QString &name, bool replace = false)
    {
        dispatcher.addMiddleware(std::make_shared<RecordingMiddleware>(name, log, replace));
    }
};

} // namespace

class TestDispatcher : public QObject
{
    Q_OBJECT
private slots:
    // Every middleware in order, then every store in order; stores see what
    // the middlewares made of the action.
    void middlewaresThenStoresInRegistrationOrder()
    {
        Rig rig;
        rig.store("s1");
        rig.middleware("m1", true);
        rig.store("s2");
        rig.middleware("m2");
        rig.dispatcher.start();
        QCOMPARE(rig.dispatcher.state(), Dispatcher::Started);
        rig.dispatcher.dispatch(new Action(1));
        rig.dispatcher.dispatch(new Action(2));
        QVERIFY(rig.log.isEmpty()); // never processed inside dispatch
        QCoreApplication::processEvents();
        QCOMPARE(rig.log, Log({"m1:1", "m2:1", "s1:1", "s2:1", "m1:2", "m2:42", "s1:42", "s2:42"}));
    }

    void reentrantDispatchIsAppendedNotNested()
    {
        Rig rig;
        rig.store("a")->onProcess = [&](const Action &action) {
            if (action.type == 1)
                rig.dispatcher.dispatch(new Action(7));
        };
        rig.store("b");
        rig.dispatcher.start();
        rig.dispatcher.dispatch(new Action(1));
        rig.dispatcher.dispatch(new Action(2));
        QCoreApplication::processEvents();
        QCOMPARE(rig.log, Log({"a:1", "b:1", "a:2", "b:2", "a:7", "b:7"}));
    }

    // Actions queue until every store has started; stop drains the queue and
    // nothing is processed after it.
    void startAndStopFrameTheQueue()
    {
        Rig rig;
        auto late = rig.store("late", true);
        QSignalSpy started(&rig.dispatcher, &Dispatcher::started);
        rig.dispatcher.dispatch(new Action(4)); // before start
        rig.dispatcher.start();
        QCOMPARE(rig.dispatcher.state(), Dispatcher::Starting);
        rig.dispatcher.dispatch(new Action(5));
        QCoreApplication::processEvents();
        QVERIFY(rig.log.isEmpty());
        emit late->started();
        QCOMPARE(rig.dispatcher.state(), Dispatcher::Started);
        QCOMPARE(started.count(), 1);
        rig.dispatcher.dispatch(new Action(6));
        QCoreApplication::processEvents();
        QCOMPARE(rig.log, Log({"late:4", "late:5", "late:6"}));

        rig.dispatcher.dispatch(new Action(7));
        QSignalSpy stopped(&rig.dispatcher, &Dispatcher::stopped);
        rig.dispatcher.stop();
        QCOMPARE(stopped.count(), 1);
        QCOMPARE(rig.log.last(), QString("late:7"));
        rig.dispatcher.dispatch(new Action(8));
        QCoreApplication::processEvents();
        QCOMPARE(rig.log.size(), 4);
        QCOMPARE(rig.dispatcher.state(), Dispatcher::Stopped);
    }
};

QTEST_GUILESS_MAIN(TestDispatcher)
#include "tst_dispatcher.moc"
