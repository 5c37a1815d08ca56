// The camera store with the real processing service on the demo camera.
#include <QSignalSpy>
#include <QtTest>
#include <actiontypes.h>
#include <cameralist.h>
#include <collectingstore.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <gestureevent.h>
#include <lenscommand.h>
#include <messagecapture.h>
#include <metatypes.h>

using namespace VCam;

class TestCoreStore : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<CoreStore> store;
    std::shared_ptr<CollectingStore> collector;

    void send(ActionType type, QVariant payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), std::move(payload)));
        QCoreApplication::processEvents();
    }
    void setLens(const QString &id)
    {
        LensCommand lens;
        lens.lensId = id;
        lens.text = GLINT_LENSES_DIR "/" + id;
        send(ActionType::SetCoreProcessingLens, QVariant::fromValue(lens));
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        store = std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }));
        collector = std::make_shared<CollectingStore>();
        dispatcher->addStore(store);
        dispatcher->addStore(collector);
        QSignalSpy started(dispatcher.get(), &Bureau::Dispatcher::started);
        dispatcher->start();
        QVERIFY(started.wait(10000) || dispatcher->state() == Bureau::Dispatcher::Started);
    }

    void cleanup()
    {
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(5000));
        store.reset();
        dispatcher.reset();
    }

    // A camera that is not connected falls back to the first listed one,
    // whose frames then flow and which is what is saved.
    void unknownCameraFallsBackToTheFirstListed()
    {
        send(ActionType::SetInputCamera, QString("Camera That Is Not Connected"));
        const QStringList listed = CameraList::availableCameras();
        QVERIFY(!listed.isEmpty());
        QCOMPARE(store->webcamNames(), listed);
        QCOMPARE(store->currentWebcamName(), listed.first());
        QSignalSpy frames(store.get(), &CoreStore::frameReady);
        QVERIFY(frames.wait(20000));
        QTRY_VERIFY_WITH_TIMEOUT(store->isStreamRunning(), 5000);
        QCOMPARE(frames.last().at(0).value<QImage>().size(), QSize(1280, 720));
        QCOMPARE(store->saveSettings()["camera"], nlohmann::json(listed.first().toStdString()));
    }

    // The emulated event is "trigger1" for a lens that declares it and a tap
    // at the corner otherwise.
    void emulatedEventIsTrigger1OrATap()
    {
        MessageCapture log(nullptr, {QtInfoMsg});
        setLens("sunglasses");
        send(ActionType::EmulateExternalEvent);
        QCoreApplication::processEvents();
        const auto gestures = collector->ofType(ActionType::GestureEvent);
        QCOMPARE(gestures.size(), 3);
        QCOMPARE(gestures.last()->payload.value<GestureEvent>().type, GestureType::Tap);
        for (const auto &gesture : gestures)
            QCOMPARE(gesture->payload.value<GestureEvent>().location, QPointF(0, 0));
        QSignalSpy trigger(store.get(), &CoreStore::triggerAvailableChanged);
        setLens("fireworks");
        QVERIFY(trigger.wait(10000) && store->isTriggerAvailable());
        collector->actions.clear();
        send(ActionType::EmulateExternalEvent);
        QCOMPARE(log.count("Process external event as trigger1"), 1);
        QVERIFY(collector->ofType(ActionType::GestureEvent).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestCoreStore)
#include "tst_corestore.moc"
