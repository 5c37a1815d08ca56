// End to end with real parts: the demo camera, the processing thread with
// the AR core and the sample lenses, the stream writer, a real FIFO and the
// camera sink program, whose output the test reads.
#include "sinkprocess.h"
#include "writeronlyoutput.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <cameralist.h>
#include <coreservice.h>
#include <metatypes.h>
#include <virtualcampaths.h>
#include <virtualcamstreamwriter.h>

using namespace VCam;

namespace {

const QString kLenses = QStringLiteral(GLINT_LENSES_DIR);
constexpr int kFrameBytes = 1280 * 720 * 3;

QImage toImage(const QByteArray &frame)
{
    return QImage(reinterpret_cast<const uchar *>(frame.constData()), 1280, 720, 1280 * 3,
                  QImage::Format_RGB888)
        .copy();
}

// Share of pixels whose channels differ: zero for a grey picture.
double colourfulness(const QImage &image)
{
    int colourful = 0, total = 0;
    for (int y = 0; y < image.height(); y += 8)
        for (int x = 0; x < image.width(); x += 8, ++total) {
            const QColor c = image.pixelColor(x, y);
            if (std::max({c.red(), c.green(), c.blue()}) - std::min({c.red(), c.green(), c.blue()}) > 24)
                ++colourful;
        }
    return double(colourful) / total;
}

// Share of near-black pixels in the upper middle of the picture, where the
// demo portrait's eyes are.
double darkAroundTheEyes(const QImage &image)
{
    int dark = 0, total = 0;
    for (int y = 120; y < 400; y += 4)
        for (int x = 320; x < 960; x += 4, ++total)
            if (qGray(image.pixel(x, y)) < 50)
                ++dark;
    return double(dark) / total;
}

} // namespace

class TestProcessingPipeline : public QObject
{
    Q_OBJECT
    QTemporaryDir runtime;
    std::unique_ptr<CoreService> service;
    std::unique_ptr<SinkProcess> sink;
    double darkWithoutLens = 1.0;

    // Frames that reached the sink, after those already on their way.
    QList<QImage> sinkFrames(int count)
    {
        QList<QImage> frames;
        for (int i = 0; i < count; ++i) {
            QCoreApplication::processEvents();
            const QByteArray frame = sink->readFrame(5000);
            if (frame.size() != kFrameBytes)
                break;
            frames << toImage(frame);
        }
        return frames;
    }

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
        sink = std::make_unique<SinkProcess>(QString::fromStdString(VirtualCamPaths::directory()));
        QVERIFY(sink->start());
        service = std::make_unique<CoreService>([] { return std::make_shared<WriterOnlyOutput>(); });
        QSignalSpy ready(service.get(), &CoreService::started);
        QVERIFY(ready.wait(5000));
        QSignalSpy processing(service.get(), &CoreService::processingStarted);
        emit service->startProcessing();
        QVERIFY(processing.wait(5000));
        emit service->setInputCamera(CameraList::demoCameraName());
    }

    void cleanupTestCase()
    {
        QSignalSpy stopped(service.get(), &CoreService::processingStopped);
        emit service->stopProcessing();
        QVERIFY(stopped.wait(5000));
        service.reset();
        sink.reset();
    }

    void framesReachTheSinkWhole()
    {
        const QList<QImage> frames = sinkFrames(30);
        QCOMPARE(frames.size(), 30);
        QVERIFY(colourfulness(frames.last()) > 0.2);
        darkWithoutLens = darkAroundTheEyes(frames.last());
    }

    void lensesApplyAndSwitchWithoutBreakingTheStream()
    {
        emit service->setLens("film-noir", kLenses + "/film-noir");
        sinkFrames(10); // frames already under way
        QList<QImage> frames = sinkFrames(20);
        QCOMPARE(frames.size(), 20);
        QVERIFY2(colourfulness(frames.last()) < 0.02, "the black-and-white lens left colour in the picture");

        emit service->setLens("sunglasses", kLenses + "/sunglasses");
        sinkFrames(15);
        frames = sinkFrames(20);
        QCOMPARE(frames.size(), 20);
        QVERIFY(colourfulness(frames.last()) > 0.2);
        const double withGlasses = darkAroundTheEyes(frames.last());
        QVERIFY2(
            withGlasses > darkWithoutLens + 0.02,
            qPrintable(QString("dark share around the eyes %1 -> %2").arg(darkWithoutLens).arg(withGlasses)));
        QDir().mkpath(GLINT_ARTIFACTS_DIR);
        frames.last().save(GLINT_ARTIFACTS_DIR "/sink-sunglasses.png");

        emit service->setLens("sunglasses", QString());
        sinkFrames(10);
        frames = sinkFrames(20);
        QCOMPARE(frames.size(), 20); // the stream went on through every switch
        QVERIFY(darkAroundTheEyes(frames.last()) < withGlasses);
    }
};

QTEST_GUILESS_MAIN(TestProcessingPipeline)
#include "tst_processingpipeline.moc"
