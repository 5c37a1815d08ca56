// What the processing worker lets through to the AR core as a background
// image, and what it answers: missing files,
// folders, pipes, text named like an image, damaged and oversized PNG
// headers are refused at once with a reason, and frames keep coming.
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <backgroundimagecheck.h>
#include <coreserviceworker.h>
#include <metatypes.h>
#include <sys/stat.h>

using namespace VCam;

namespace {

QByteArray bigEndian(quint32 value)
{
    return QByteArray(1, char(value >> 24)) + char(value >> 16) + char(value >> 8) + char(value);
}

QByteArray chunk(const QByteArray &type, const QByteArray &data)
{
    quint32 crc = 0xffffffffu;
    for (const char byte : type + data) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return bigEndian(quint32(data.size())) + type + data + bigEndian(~crc);
}

// A PNG whose header claims the size; decoding it would need width*height*3 bytes.
QByteArray pngClaiming(quint32 width, quint32 height)
{
    const QByteArray header = bigEndian(width) + bigEndian(height) + QByteArray("\x08\x02\x00\x00\x00", 5);
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", {}) + chunk("IEND", {});
}

QString write(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    QFile file(dir.filePath(name));
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
    return file.fileName();
}

} // namespace

class TestBackgroundEffect : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

private slots:
    void initTestCase() { registerMetaTypes(); }

    void hostileImagesAreRefused_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        QByteArray damaged = pngClaiming(640, 480);
        damaged[20] = char(damaged[20] ^ 0x40); // the header's checksum no longer matches
        const QString fifo = dir.filePath("pipe.jpg");
        QCOMPARE(mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
        QTest::newRow("missing") << dir.filePath("gone.jpg") << "does not exist";
        QTest::newRow("folder") << dir.path() << "is a folder";
        QTest::newRow("pipe") << fifo << "is not an image file";
        QTest::newRow("text named .png") << write(dir, "notes.png", "not a picture\n") << "not a PNG or JPEG";
        QTest::newRow("damaged header") << write(dir, "damaged.png", damaged) << "is damaged";
        QTest::newRow("20000x20000") << write(dir, "huge.png", pngClaiming(20000, 20000))
                                     << "too large (20000 x 20000";
        QTest::newRow("9000 wide") << write(dir, "wide.png", pngClaiming(9000, 100))
                                   << "too large (9000 x 100";
        QTest::newRow("no path") << QString() << "No background image";
    }

    // The answer names the problem, nothing blocks on a pipe or decodes a
    // huge picture, and the next frame comes through.
    void hostileImagesAreRefused()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        CoreServiceWorker worker([] { return std::shared_ptr<IVirtualCamService>(); });
        QSignalSpy answers(&worker, &CoreServiceWorker::backgroundEffectAnswered);
        QSignalSpy frames(&worker, &CoreServiceWorker::frameReady);
        worker.startProcessing();
        const BackgroundSetting setting{BackgroundMode::Image, BlurStrength::Light, file};
        worker.setBackgroundEffect(setting); // returns at once, also for the pipe
        QCOMPARE(answers.size(), 1);
        QCOMPARE(answers[0][0].value<BackgroundSetting>(), setting);
        QVERIFY2(answers[0][1].toString().contains(expected), qPrintable(answers[0][1].toString()));
        QImage frame(1280, 720, QImage::Format_RGBA8888);
        frame.fill(QColor(90, 140, 200));
        worker.onFrameReady(frame);
        QCOMPARE(frames.size(), 1);
        QCOMPARE(frames[0][0].value<QImage>().size(), QSize(1280, 720));
        worker.stopProcessing();
    }
};

QTEST_GUILESS_MAIN(TestBackgroundEffect)
#include "tst_backgroundeffect.moc"
