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
#include <metatypes.h>

using namespace VCam;

namespace {

const QString kLenses = QStringLiteral(GLINT_LENSES_DIR);

QStringList g_infos;
QtMessageHandler g_previous = nullptr;
void collect(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtInfoMsg)
        g_infos << message;
    g_previous(type, context, message);
}

} // namespace

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
        lens.text = id.isEmpty() ? QString() : kLenses + "/" + id;
        send(ActionType::SetCoreProcessingLens, QVariant::fromValue(lens));
    }

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        g_previous = qInstallMessageHandler(collect);
    }

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
        g_infos.clear();
    }

    void cleanup()
    {
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(5000));
        store.reset();
        dispatcher.reset();
    }

    void unknownCameraFallsBackToTheFirstListed()
    {
        QSignalSpy names(store.get(), &CoreStore::webcamNamesChanged);
        send(ActionType::SetInputCamera, QString("Camera That Is Not Connected"));
        const QStringList listed = CameraList::availableCameras();
        QVERIFY(!listed.isEmpty());
        QCOMPARE(store->webcamNames(), listed);
        QCOMPARE(store->currentWebcamName(), listed.first());
        QCOMPARE(names.count(), 1);
        // Frames start to flow from the chosen camera.
        QSignalSpy frames(store.get(), &CoreStore::frameReady);
        QVERIFY(frames.wait(20000));
        QTRY_VERIFY_WITH_TIMEOUT(store->isStreamRunning(), 5000);
        QCOMPARE(frames.last().at(0).value<QImage>().size(), QSize(1280, 720));
        QCOMPARE(store->saveSettings()["camera"], nlohmann::json(listed.first().toStdString()));
    }

    void emulatedEventIsATapWithoutTriggerAndTrigger1WithIt()
    {
        setLens("sunglasses");
        send(ActionType::EmulateExternalEvent);
        QCoreApplication::processEvents();
        const auto gestures = collector->ofType(ActionType::GestureEvent);
        QCOMPARE(gestures.size(), 3);
        QCOMPARE(gestures.last()->payload.value<GestureEvent>().type, GestureType::Tap);
        for (const auto &gesture : gestures)
            QCOMPARE(gesture->payload.value<GestureEvent>().location, QPointF(0, 0));
        QVERIFY(g_infos.contains("Process external event as tap"));

        QSignalSpy trigger(store.get(), &CoreStore::triggerAvailableChanged);
        setLens("fireworks");
        QVERIFY(trigger.wait(10000));
        QVERIFY(store->isTriggerAvailable());
        collector->actions.clear();
        send(ActionType::EmulateExternalEvent);
        QVERIFY(g_infos.contains("Process external event as trigger1"));
        QVERIFY(collector->ofType(ActionType::GestureEvent).isEmpty());

        setLens(QString()); // no lens: no trigger
        QTRY_VERIFY_WITH_TIMEOUT(!store->isTriggerAvailable(), 5000);
    }

    void glintcodeWithoutLensClearsTheOverlay()
    {
        QSignalSpy changed(store.get(), &CoreStore::alwaysShowGlintcodeChanged);
        send(ActionType::SetAlwaysShowGlintcode, true);
        send(ActionType::SetAlwaysShowGlintcode, true);
        QCOMPARE(changed.count(), 1);
        QCoreApplication::processEvents();
        const auto overlays = collector->ofType(ActionType::SetCoreProcessingOverlay);
        QCOMPARE(overlays.size(), 1);
        QVERIFY(overlays[0]->payload.value<QImage>().isNull());
    }

    void brokenLensIsReportedToTheUser()
    {
        LensCommand lens;
        lens.lensId = "broken";
        lens.text = QDir::tempPath() + "/no-lens-here";
        QSignalSpy failed(store.get(), &CoreStore::lensLoadFailed);
        send(ActionType::SetCoreProcessingLens, QVariant::fromValue(lens));
        QVERIFY(failed.wait(10000));
        QCoreApplication::processEvents();
        QCOMPARE(collector->ofType(ActionType::ShowPopupMessage).size(), 1);
        QCOMPARE(store->currentLensId(), QString("broken"));
    }

    void lensHintsBecomeActions()
    {
        // The confetti lens asks for its start hint once it shows.
        setLens("confetti");
        send(ActionType::SetInputCamera, CameraList::demoCameraName());
        QTRY_VERIFY_WITH_TIMEOUT(!collector->ofType(ActionType::ShowLensHint).isEmpty(), 20000);
        QCOMPARE(collector->ofType(ActionType::ShowLensHint).first()->payload.toString(),
                 QString("lens_hint_open_your_mouth"));
        send(ActionType::SetMainLensHint, QString("lens_hint_tap"));
        QVERIFY(store->isMainLensHint());
    }
};

QTEST_GUILESS_MAIN(TestCoreStore)
#include "tst_corestore.moc"
