// The processing worker with the real AR core library, the demo camera and
// the sample lenses.
#include <QPainter>
#include <QSignalSpy>
#include <QtTest>
#include <coreserviceworker.h>
#include <metatypes.h>

using namespace VCam;

namespace {

const QString kLenses = QStringLiteral(GLINT_LENSES_DIR);

QStringList g_warnings;
QtMessageHandler g_previous = nullptr;
void collectWarnings(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtWarningMsg && QByteArray(context.category) == "glint.video.processing")
        g_warnings << message;
    g_previous(type, context, message);
}

// A 1280x720 RGBA frame of one colour.
QImage flatFrame(QColor colour)
{
    QImage frame(1280, 720, QImage::Format_RGBA8888);
    frame.fill(colour);
    return frame;
}

// Mean absolute difference per channel between two images of one size.
double difference(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    double total = 0;
    for (int row = 0; row < x.height(); row += 4) {
        const uchar *p = x.constScanLine(row);
        const uchar *q = y.constScanLine(row);
        for (int i = 0; i < x.width() * 3; i += 3)
            total += std::abs(p[i] - q[i]) + std::abs(p[i + 1] - q[i + 1]) + std::abs(p[i + 2] - q[i + 2]);
    }
    return total / (x.width() * (x.height() / 4) * 3);
}

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
    void initTestCase()
    {
        registerMetaTypes();
        g_previous = qInstallMessageHandler(collectWarnings);
    }

    void init()
    {
        // No virtual camera: these tests look at what the worker emits.
        worker = std::make_unique<CoreServiceWorker>([] { return std::shared_ptr<IVirtualCamService>(); });
        frames = std::make_unique<QSignalSpy>(worker.get(), &CoreServiceWorker::frameReady);
        worker->startProcessing();
        g_warnings.clear();
    }

    void cleanup()
    {
        worker->stopProcessing();
        frames.reset();
        worker.reset();
    }

    void framesWithoutLensPassThroughAsRgb720p()
    {
        const QImage out = process(flatFrame(QColor(200, 40, 90)));
        QCOMPARE(out.size(), QSize(1280, 720));
        QCOMPARE(out.format(), QImage::Format_RGB888);
        QCOMPARE(QColor(out.pixel(640, 360)), QColor(200, 40, 90));
        const QImage small = process(flatFrame(Qt::blue).scaled(640, 480));
        QCOMPARE(small.size(), QSize(1280, 720));
    }

    void lensChangesThePictureAndClearingRestoresIt()
    {
        QSignalSpy loaded(worker.get(), &CoreServiceWorker::lensLoaded);
        const QImage input = flatFrame(QColor(220, 60, 40));
        worker->setLens("film-noir", kLenses + "/film-noir");
        QCOMPARE(loaded.count(), 1);
        const QImage graded = process(input);
        QVERIFY2(difference(graded, input) > 10, "the lens did not change the picture");
        worker->setLens("film-noir", QString());
        QCOMPARE(difference(process(input), input), 0.0);
    }

    void fiveFailuresInARowPauseTheLens()
    {
        worker->setLens("film-noir", kLenses + "/film-noir");
        const QImage input = flatFrame(QColor(220, 60, 40));
        // An empty picture makes the core library throw.
        for (int i = 0; i < 4; ++i)
            worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(worker->failCount(), 4);
        process(input); // a success in between starts the count again
        QCOMPARE(worker->failCount(), 0);
        for (int i = 0; i < 5; ++i)
            worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(g_warnings.size(), 4 + 5 + 1);
        QCOMPARE(g_warnings.last(),
                 QString("Max frame processing fail count. Pause effect application till lens reset"));
        QCOMPARE(g_warnings[g_warnings.size() - 2], QString("empty frame"));
        // Paused: frames pass through untouched, and nothing more is logged.
        QCOMPARE(difference(process(input), input), 0.0);
        worker->onFrameReady(QImage(0, 0, QImage::Format_RGBA8888));
        QCOMPARE(g_warnings.size(), 10);
        // A new lens starts over.
        worker->setLens("film-noir", kLenses + "/film-noir");
        QCOMPARE(worker->failCount(), 0);
        QVERIFY(difference(process(input), input) > 10);
    }

    void overlaySitsInTheCornerAndMirrorsBack()
    {
        QImage mark(40, 20, QImage::Format_RGBA8888);
        mark.fill(Qt::white);
        QPainter(&mark).fillRect(0, 0, 20, 20, Qt::red); // red on the left half
        worker->setOverlay(mark);
        QCOMPARE(worker->overlay().size(), QSize(150, 150));
        const QImage out = process(flatFrame(Qt::black));
        // 150x150 at 10 pixels from the bottom and right edges.
        QCOMPARE(QColor(out.pixel(1280 - 10 - 150 + 5, 720 - 10 - 75)), QColor(Qt::red));
        QCOMPARE(QColor(out.pixel(1280 - 10 - 5, 720 - 10 - 75)), QColor(Qt::white));
        QCOMPARE(QColor(out.pixel(1280 - 5, 720 - 5)), QColor(Qt::black));
        QCOMPARE(QColor(out.pixel(1280 - 10 - 160, 720 - 80)), QColor(Qt::black));

        worker->setOverlayMirrored(true);
        const QImage mirrored = process(flatFrame(Qt::black));
        QCOMPARE(QColor(mirrored.pixel(10 + 5, 720 - 10 - 75)), QColor(Qt::white));
        QCOMPARE(QColor(mirrored.pixel(10 + 145, 720 - 10 - 75)), QColor(Qt::red));
        const QImage before = worker->overlay();
        worker->setOverlayMirrored(true); // same value: nothing changes
        QCOMPARE(worker->overlay(), before);
        worker->setOverlayMirrored(false);
        QCOMPARE(QColor(worker->overlay().pixel(5, 75)), QColor(Qt::red));
        worker->setOverlay(QImage());
        QVERIFY(worker->overlay().isNull());
    }
};

QTEST_GUILESS_MAIN(TestCoreServiceWorker)
#include "tst_coreserviceworker.moc"
