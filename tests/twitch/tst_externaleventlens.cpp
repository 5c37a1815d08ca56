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

class TestExternalEventLens : public QObject
{
    Q_OBJECT

    // Share of pixels that are coin gold in the next frame after `ms`.
    double goldAfter(int ms, const QString &name)
    {
        QTest::qWait(ms);
        QSignalSpy frames(core.get(), &CoreStore::frameReady);
        if (!frames.wait(20000))
            return -1;
        const QImage frame = frames.last().first().value<QImage>();
        frame.save(GLINT_ARTIFACTS_DIR "/external-event-" + name + ".png");
        int count = 0, total = 0;
        for (int y = 0; y < frame.height(); y += 4) {
            for (int x = 0; x < frame.width(); x += 4, ++total) {
                const QColor c = frame.pixelColor(x, y);
                count += c.red() > 190 && c.green() > 130 && c.blue() < 80;
            }
        }
        return total ? double(count) / total : -1;
    }

    std::shared_ptr<Bureau::Dispatcher> dispatcher = std::make_shared<Bureau::Dispatcher>();
    std::shared_ptr<ActionProvider> provider = std::make_shared<ActionProvider>(dispatcher);
    std::shared_ptr<CoreStore> core;
    std::shared_ptr<ExternalEventsStore> events;

private slots:
    void eventFromAClientShowsInTheFrames()
    {
        registerMetaTypes();
        QDir().mkpath(GLINT_ARTIFACTS_DIR);
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        const quint16 port = probe.serverPort();
        probe.close();
        core = std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }));
        events = std::make_shared<ExternalEventsStore>(provider, new ExternalEventsListener(port, {}));
        dispatcher->addStore(core);
        dispatcher->addStore(events);
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
        QVERIFY(trigger.wait(30000) && core->isTriggerAvailable());
        QTRY_VERIFY_WITH_TIMEOUT(events->listener()->isListening(), 5000);
        const double before = goldAfter(300, "before");
        QVERIFY(before >= 0);

        QTcpSocket client;
        client.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(client.waitForConnected(3000));
        client.write("{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}");
        QVERIFY(client.waitForBytesWritten(3000));
        const double coins = goldAfter(1200, "donate");
        QVERIFY2(coins > before + 0.01, qPrintable(QString("gold %1 -> %2").arg(before).arg(coins)));
    }

    void cleanupTestCase()
    {
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        QVERIFY(stopped.count() == 1 || stopped.wait(10000));
    }
};

QTEST_MAIN(TestExternalEventLens)
#include "tst_externaleventlens.moc"
