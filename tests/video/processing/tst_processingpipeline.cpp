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

using namespace VCam;

namespace {

const QString kLenses = QStringLiteral(GLINT_LENSES_DIR);

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

    // The last of `count` frames that reach the sink after `skip` already on
    // their way; a null image when the stream broke off.
    QImage lastSinkFrame(int skip, int count)
    {
        QImage last;
        for (int i = 0; i < skip + count; ++i) {
            QCoreApplication::processEvents();
            const QByteArray frame = sink->readFrame(5000);
            if (frame.isEmpty())
                return {};
            last =
                QImage(reinterpret_cast<const uchar *>(frame.constData()), 1280, 720, QImage::Format_RGB888)
                    .copy();
        }
        return last;
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

    // The stream goes on whole through every switch.
    void lensesApplyAndSwitchWithoutBreakingTheStream()
    {
        QImage frame = lastSinkFrame(0, 30);
        QVERIFY(!frame.isNull());
        QVERIFY(colourfulness(frame) > 0.2);
        const double darkWithoutLens = darkAroundTheEyes(frame);

        emit service->setLens("film-noir", kLenses + "/film-noir");
        frame = lastSinkFrame(10, 20);
        QVERIFY(!frame.isNull());
        QVERIFY2(colourfulness(frame) < 0.02, "the black-and-white lens left colour in the picture");

        emit service->setLens("sunglasses", kLenses + "/sunglasses");
        frame = lastSinkFrame(15, 20);
        QVERIFY(!frame.isNull());
        QVERIFY(colourfulness(frame) > 0.2);
        const double withGlasses = darkAroundTheEyes(frame);
        QVERIFY2(
            withGlasses > darkWithoutLens + 0.02,
            qPrintable(QString("dark share around the eyes %1 -> %2").arg(darkWithoutLens).arg(withGlasses)));
        QDir().mkpath(GLINT_ARTIFACTS_DIR);
        frame.save(GLINT_ARTIFACTS_DIR "/sink-sunglasses.png");

        emit service->setLens("sunglasses", QString());
        frame = lastSinkFrame(10, 20);
        QVERIFY(!frame.isNull());
        QVERIFY(darkAroundTheEyes(frame) < withGlasses);
    }
};

QTEST_GUILESS_MAIN(TestProcessingPipeline)
#include "tst_processingpipeline.moc"
