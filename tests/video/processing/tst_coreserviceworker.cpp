// The processing worker with the real AR core library, the demo camera and
// the sample lenses.
#include <QPainter>
#include <QSignalSpy>
#include <QtTest>
#include <coreserviceworker.h>
#include <messagecapture.h>
#include <metatypes.h>

using namespace VCam;

namespace {

const QString kLenses = QStringLiteral(GLINT_LENSES_DIR);

} // namespace

class TestCoreServiceWorker : public QObject
{
    Q_OBJECT
    std::unique_ptr<CoreServiceWorker> worker;
    std::unique_ptr<QSignalSpy> frames;

    QImage process(const QImage &input)
    {
        worker->onFrameReady(input);
        return frames->isEmpty() ? QImage() : frames->takeLast().at(0).value<QImage>();
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        // No virtual camera: these tests look at what the worker emits.
        worker = std::make_unique<CoreServiceWorker>([] { return std::shared_ptr<IVirtualCamService>(); });
        frames = std::make_unique<QSignalSpy>(worker.get(), &CoreServiceWorker::frameReady);
        worker->startProcessing();
    }

    void cleanup()
    {
        worker->stopProcessing();
        frames.reset();
        worker.reset();
    }

    void fiveFailuresInARowPauseTheLens()
    {
        MessageCapture log("glint.video.processing", {QtWarningMsg});
        worker->setLens("film-noir", kLenses + "/film-noir");
        QImage input(1280, 720, QImage::Format_RGBA8888);
        input.fill(QColor(220, 60, 40));
        // An empty picture makes the core library throw.
        for (int i = 0; i < 4; ++i)
            worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(worker->failCount(), 4);
        process(input); // a success in between starts the count again
        QCOMPARE(worker->failCount(), 0);
        for (int i = 0; i < 5; ++i)
            worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(log.messages().size(), 4 + 5 + 1);
        QCOMPARE(log.messages().last(),
                 QString("Max frame processing fail count. Pause effect application till lens reset"));
        // Paused: frames pass through untouched, and nothing more is logged.
        QCOMPARE(process(input), input.convertToFormat(QImage::Format_RGB888));
        worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(log.messages().size(), 10);
        // A new lens starts over.
        worker->setLens("film-noir", kLenses + "/film-noir");
        QCOMPARE(worker->failCount(), 0);
        QVERIFY(QColor(process(input).pixel(640, 360)).saturation() < 30); // the grey of the lens
    }

    // 150x150 at 10 pixels from the bottom and right edges, from the left
    // when mirrored; mirroring back restores it.
    void overlaySitsInTheCornerAndMirrorsBack()
    {
        QImage mark(40, 20, QImage::Format_RGBA8888);
        mark.fill(Qt::white);
        QPainter(&mark).fillRect(0, 0, 20, 20, Qt::red); // red on the left half
        worker->setOverlay(mark);
        QCOMPARE(worker->overlay().size(), QSize(150, 150));
        QImage black(1280, 720, QImage::Format_RGBA8888);
        black.fill(Qt::black);
        const QImage out = process(black);
        QCOMPARE(QColor(out.pixel(1280 - 10 - 150 + 5, 720 - 10 - 75)), QColor(Qt::red));
        QCOMPARE(QColor(out.pixel(1280 - 10 - 5, 720 - 10 - 75)), QColor(Qt::white));
        QCOMPARE(QColor(out.pixel(1280 - 10 - 160, 720 - 80)), QColor(Qt::black));
        worker->setOverlayMirrored(true);
        const QImage mirrored = process(black);
        QCOMPARE(QColor(mirrored.pixel(10 + 5, 720 - 10 - 75)), QColor(Qt::white));
        QCOMPARE(QColor(mirrored.pixel(10 + 145, 720 - 10 - 75)), QColor(Qt::red));
        worker->setOverlayMirrored(true); // same value: not mirrored back
        worker->setOverlayMirrored(false);
        QCOMPARE(QColor(worker->overlay().pixel(5, 75)), QColor(Qt::red));
    }
};

QTEST_GUILESS_MAIN(TestCoreServiceWorker)
#include "tst_coreserviceworker.moc"
