// An event sent by a TCP client reaches the running lens: the sample lens
// that reacts to stream events draws coins into the camera's frames.
#include <QDir>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <actionprovider.h>
#include <actiontypes.h>
#include <cameralist.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <externaleventslistener.h>
#include <externaleventsstore.h>
#include <lenscommand.h>
#include <metatypes.h>

using namespace VCam;

namespace {

// Share of pixels that are coin gold.
double gold(const QImage &frame)
{
    int count = 0, total = 0;
    for (int y = 0; y < frame.height(); y += 4) {
        for (int x = 0; x < frame.width(); x += 4) {
            const QColor c = frame.pixelColor(x, y);
            count += c.red() > 190 && c.green() > 130 && c.blue() < 80;
            ++total;
        }
    }
    return double(count) / total;
}

} // namespace

class TestExternalEventLens : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<ActionProvider> provider;
    std::shared_ptr<CoreStore> core;
    std::shared_ptr<ExternalEventsStore> events;
    QImage lastFrame;

    QImage frameAfter(int ms)
    {
        QTest::qWait(ms);
        QSignalSpy frames(core.get(), &CoreStore::frameReady);
        frames.wait(5000);
        return lastFrame;
    }

    void send(const QByteArray &message)
    {
        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, events->listener()->port());
        QVERIFY(client.waitForConnected(3000));
        client.write(message);
        QVERIFY(client.waitForBytesWritten(3000));
        client.disconnectFromHost();
    }

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        const quint16 port = probe.serverPort();
        probe.close();
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        provider = std::make_shared<ActionProvider>(dispatcher);
        core = std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }));
        events = std::make_shared<ExternalEventsStore>(provider, new ExternalEventsListener(port, {}));
        dispatcher->addStore(core);
        dispatcher->addStore(events);
        connect(core.get(), &CoreStore::frameReady, this, [this](const QImage &frame) { lastFrame = frame; });
        QSignalSpy started(dispatcher.get(), &Bureau::Dispatcher::started);
        dispatcher->start();
        QVERIFY(started.wait(10000) || dispatcher->state() == Bureau::Dispatcher::Started);
        provider->notifyStarted();
        provider->setCamera(CameraList::demoCameraName());
        LensCommand lens;
        lens.lensId = "stream-cheers";
        lens.text = QStringLiteral(GLINT_LENSES_DIR "/stream-cheers");
        QSignalSpy trigger(core.get(), &CoreStore::triggerAvailableChanged);
        dispatcher->dispatch(
            new Bureau::Action(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(lens)));
        QVERIFY(trigger.wait(30000));
        QVERIFY(core->isTriggerAvailable());
        QTRY_VERIFY_WITH_TIMEOUT(events->listener()->isListening(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!lastFrame.isNull(), 20000);
    }

    void cleanupTestCase()
    {
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(10000));
    }

    void eventsFromAClientShowInTheFrames()
    {
        QDir().mkpath(GLINT_ARTIFACTS_DIR);
        const QImage before = frameAfter(300);
        before.save(GLINT_ARTIFACTS_DIR "/external-event-before.png");

        send("{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}");
        const QImage coins = frameAfter(1200);
        coins.save(GLINT_ARTIFACTS_DIR "/external-event-donate.png");
        QVERIFY2(gold(coins) > gold(before) + 0.01,
                 qPrintable(QString("gold %1 -> %2").arg(gold(before)).arg(gold(coins))));
    }
};

QTEST_MAIN(TestExternalEventLens)
#include "tst_externaleventlens.moc"
