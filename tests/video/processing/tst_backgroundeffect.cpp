// Background effects in the processing worker with the real AR core: what
// the worker lets through to the core, what it answers, and the picture it
// makes. The images come from the build (the bundled backgrounds) or are
// written here: missing files, folders, pipes, text named like images,
// damaged and oversized PNG headers.
#include "backgroundmeasure.h"

#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <backgroundassets.h>
#include <backgroundimagecheck.h>
#include <coreserviceworker.h>
#include <metatypes.h>
#include <sys/stat.h>

using namespace VCam;

namespace {

// What the core says while it is built without its background effects; the
// tests that need the effect itself skip on it (see effectChangesOnlyTheBackground).
const QString kNotInThisBuild = QStringLiteral("Background effects are not available in this build");

quint32 crc32(const QByteArray &bytes)
{
    quint32 crc = 0xffffffffu;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

QByteArray bigEndian(quint32 value)
{
    return QByteArray(1, char(value >> 24)) + char(value >> 16) + char(value >> 8) + char(value);
}

QByteArray chunk(const QByteArray &type, const QByteArray &data)
{
    return bigEndian(quint32(data.size())) + type + data + bigEndian(crc32(type + data));
}

// A PNG that claims the given size: a valid signature and header, then one
// empty data chunk. Decoding it for real would need width*height*3 bytes.
QByteArray pngClaiming(quint32 width, quint32 height)
{
    const QByteArray header = bigEndian(width) + bigEndian(height) + QByteArray("\x08\x02\x00\x00\x00", 5);
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", QByteArray()) +
           chunk("IEND", QByteArray());
}

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// The test portrait as a head-and-shoulders camera frame: scaled to the
// frame's width, top part. The flag fills the left edge, the face is in
// the middle.
QImage portraitFrame()
{
    const QImage portrait(QStringLiteral(GLINT_TESTDATA_DIR "/astronaut.png"));
    return portrait.scaled(1280, 1280, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .copy(0, 0, 1280, 720)
        .convertToFormat(QImage::Format_RGBA8888);
}

} // namespace

class TestBackgroundEffect : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    std::unique_ptr<CoreServiceWorker> worker;
    std::unique_ptr<QSignalSpy> frames;
    std::unique_ptr<QSignalSpy> answers;

    QImage process(const QImage &input)
    {
        worker->onFrameReady(input);
        return frames->isEmpty() ? QImage() : frames->takeLast().at(0).value<QImage>();
    }
    QString answerTo(const BackgroundSetting &setting)
    {
        answers->clear();
        worker->setBackgroundEffect(setting);
        if (answers->size() != 1)
            return QStringLiteral("no single answer (%1)").arg(answers->size());
        if (answers->first().at(0).value<BackgroundSetting>() != setting)
            return QStringLiteral("answered for another setting");
        return answers->first().at(1).toString();
    }

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        qRegisterMetaType<BackgroundSetting>("VCam::BackgroundSetting");
        QVERIFY(dir.isValid());
    }

    void init()
    {
        worker = std::make_unique<CoreServiceWorker>([] { return std::shared_ptr<IVirtualCamService>(); });
        frames = std::make_unique<QSignalSpy>(worker.get(), &CoreServiceWorker::frameReady);
        answers = std::make_unique<QSignalSpy>(worker.get(), &CoreServiceWorker::backgroundEffectAnswered);
        worker->startProcessing();
    }

    void cleanup()
    {
        worker->stopProcessing();
        answers.reset();
        frames.reset();
        worker.reset();
    }

    // The images that come with the program are there, 1280x720, and pass
    // the check the worker makes before the core sees a file.
    void bundledImagesAreUsable()
    {
        const QStringList images = BackgroundAssets::bundledImages();
        QVERIFY2(images.size() >= 3, qPrintable(BackgroundAssets::imageFolder()));
        for (const QString &image : images) {
            QCOMPARE(BackgroundImageCheck::problemWith(image), QString());
            QCOMPARE(QImage(image).size(), QSize(1280, 720));
        }
    }

    void hostileImagesAreRefusedBeforeTheCore_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        const QString textFile = dir.filePath("notes.png");
        write(textFile, "this is not a picture\n");
        const QString huge = dir.filePath("huge.png");
        write(huge, pngClaiming(20000, 20000));
        const QString wide = dir.filePath("wide.png");
        write(wide, pngClaiming(9000, 100));
        const QString damaged = dir.filePath("damaged.png");
        QByteArray broken = pngClaiming(640, 480);
        broken[20] = char(broken[20] ^ 0x40); // the header's checksum no longer matches
        write(damaged, broken);
        const QString gif = dir.filePath("anim.jpg");
        write(gif, QByteArray("GIF89a\x01\x00\x01\x00\x00\x00\x00;", 13));
        const QString fifo = dir.filePath("pipe.jpg");
        QCOMPARE(mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
        QTest::newRow("missing") << dir.filePath("gone.jpg") << "does not exist";
        QTest::newRow("folder") << dir.path() << "is a folder";
        QTest::newRow("pipe") << fifo << "is not an image file";
        QTest::newRow("text named .png") << textFile << "not a PNG or JPEG";
        QTest::newRow("GIF named .jpg") << gif << "not a PNG or JPEG";
        QTest::newRow("damaged header") << damaged << "is damaged";
        QTest::newRow("20000x20000") << huge << "too large (20000 x 20000";
        QTest::newRow("9000 wide") << wide << "too large (9000 x 100";
        QTest::newRow("no path") << QString() << "No background image";
    }

    // Each answer says what is wrong with the file, the effect stays off and
    // frames keep coming at once, unchanged (nothing blocks on a pipe and
    // nothing decodes a huge picture).
    void hostileImagesAreRefusedBeforeTheCore()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        const QImage frame = portraitFrame();
        QElapsedTimer clock;
        clock.start();
        const QString error = answerTo({BackgroundMode::Image, BlurStrength::Light, file});
        QVERIFY2(error.contains(expected), qPrintable(error));
        QVERIFY(clock.elapsed() < 2000);
        QCOMPARE(process(frame).size(), QSize(1280, 720));
    }

    // A failed effect is forgotten: a new core (processing restarted) does
    // not try it again, and Off always succeeds.
    void failedEffectIsNotRetried()
    {
        QVERIFY(!answerTo({BackgroundMode::Image, BlurStrength::Light, dir.filePath("gone.png")}).isEmpty());
        worker->stopProcessing();
        answers->clear();
        worker->startProcessing();
        QCOMPARE(answers->size(), 0);
        QCOMPARE(answerTo({}), QString());
    }

    // A missing model is the core's to report; the worker passes its words
    // on and frames keep flowing.
    void missingModelIsReported()
    {
        const QByteArray model = qgetenv("GLINT_SEGMENTATION_MODEL");
        qputenv("GLINT_SEGMENTATION_MODEL", dir.filePath("no-model.onnx").toUtf8());
        worker->stopProcessing();
        worker->startProcessing(); // a new core reads the model path
        const QString error = answerTo({BackgroundMode::Blur, BlurStrength::Strong, QString()});
        qputenv("GLINT_SEGMENTATION_MODEL", model);
        QVERIFY(!error.isEmpty());
        QVERIFY(!process(portraitFrame()).isNull());
    }

    // The effect itself: blur takes the fine detail out of the flag behind
    // the person and leaves the face; an image replaces the flag.
    void effectChangesOnlyTheBackground()
    {
        const QImage frame = portraitFrame();
        const QRect flag(20, 120, 170, 480);  // stripes and stars, left of the person
        const QRect face(480, 230, 190, 210); // eyes, mouth, hair
        process(frame);                       // the first frame starts tracking
        const QImage plain = process(frame);
        QVERIFY(!plain.isNull());

        const QString error = answerTo({BackgroundMode::Blur, BlurStrength::Strong, QString()});
        if (error == kNotInThisBuild)
            QSKIP("this build's AR core has no background effects yet");
        QCOMPARE(error, QString());
        QImage blurred;
        for (int i = 0; i < 5; ++i) // the mask settles over a few frames
            blurred = process(frame);
        const double flagBefore = BackgroundMeasure::detail(plain, flag);
        const double flagAfter = BackgroundMeasure::detail(blurred, flag);
        const double faceBefore = BackgroundMeasure::detail(plain, face);
        const double faceAfter = BackgroundMeasure::detail(blurred, face);
        QVERIFY2(flagAfter < flagBefore * 0.5,
                 qPrintable(QString("flag %1 -> %2").arg(flagBefore).arg(flagAfter)));
        QVERIFY2(faceAfter > faceBefore * 0.7,
                 qPrintable(QString("face %1 -> %2").arg(faceBefore).arg(faceAfter)));

        // A flat grey image behind the person: the flag's corner becomes grey.
        QImage grey(1280, 720, QImage::Format_RGB888);
        grey.fill(QColor(128, 128, 128));
        const QString greyFile = dir.filePath("grey.png");
        QVERIFY(grey.save(greyFile));
        QCOMPARE(answerTo({BackgroundMode::Image, BlurStrength::Light, greyFile}), QString());
        QImage replaced;
        for (int i = 0; i < 5; ++i)
            replaced = process(frame);
        QVERIFY(BackgroundMeasure::detail(replaced, flag) < 2.0);
        const QColor corner = replaced.pixelColor(60, 200);
        QVERIFY2(std::abs(corner.red() - 128) < 20 && std::abs(corner.blue() - 128) < 20,
                 qPrintable(corner.name()));
    }
};

QTEST_GUILESS_MAIN(TestBackgroundEffect)
#include "tst_backgroundeffect.moc"
