#include "cameralist.h"
#include "ffmpegfileframestream.h"
#include "ffmpegwebcamframestream.h"
#include "videofixture.h"

#include <QTemporaryDir>
#include <QtTest>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

using namespace VCam;
using VideoFixture::Corner;

Q_DECLARE_METATYPE(VideoFixture::Corner)

namespace {

// Gives the tests the filter text and a rotation without opening a device.
class ExposedWebcamStream : public FFmpegWebcamFrameStream
{
public:
    using FFmpegWebcamFrameStream::filterDescription;
    void setRotation(int degrees) { m_rotation = degrees; }
};

struct Attempt
{
    QString size;
    QString rate;
    QString inputFormat;
    int codec;
};

QString option(AVDictionary *options, const char *key)
{
    const AVDictionaryEntry *entry = av_dict_get(options, key, nullptr, 0);
    return entry ? QString::fromUtf8(entry->value) : QString();
}

std::unique_ptr<FFmpegFileFrameStream> openFile(const QString &path, float ratio)
{
    auto stream = std::make_unique<FFmpegFileFrameStream>();
    stream->setDeviceName(CameraList::fileCameraName(path).toStdString());
    stream->setAspectRatio(ratio);
    if (!stream->open())
        return nullptr;
    return stream;
}

} // namespace

class TestFrameStream : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void filterText_data();
    void filterText();
    void decodesToRgba_data();
    void decodesToRgba();
    void openAttempts_data();
    void openAttempts();
    void everyAttemptFailing();
    void heldImageDropsPictures();
    void aspectRatioChangeAppliesToNextFrame();
    void fileLoopsWithGrowingTimestamps();
    void missingFileFailsToOpen();

private:
    QTemporaryDir m_dir;
    QString m_raw640;
};

void TestFrameStream::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_raw640 = VideoFixture::make(m_dir.path(), "raw640.mkv", {"rawvideo", {640, 480}, 5, 25, {}});
    QVERIFY(!m_raw640.isEmpty());
}

void TestFrameStream::filterText_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<float>("ratio");
    QTest::addColumn<int>("rotation");
    QTest::addColumn<QString>("expected");

    const float wide = 16.0f / 9.0f;
    QTest::newRow("square cut of 720p") << 1280 << 720 << 1.0f << 0 << "crop=720:720,scale=1280:720";
    QTest::newRow("16:9 on 720p") << 1280 << 720 << wide << 0 << "scale=1280:720";
    QTest::newRow("16:9 on 1080p") << 1920 << 1080 << wide << 0 << "scale=1280:720";
    QTest::newRow("16:9 rotated 90") << 1280 << 720 << wide << 90 << "transpose=1,scale=1280:720";
    QTest::newRow("16:9 rotated 180")
        << 1280 << 720 << wide << 180 << "transpose=1,transpose=1,scale=1280:720";
    QTest::newRow("16:9 rotated 270") << 1280 << 720 << wide << 270 << "transpose=2,scale=1280:720";
    QTest::newRow("45 adds no rotation") << 1280 << 720 << wide << 45 << "scale=1280:720";
    // Too wide for the picture: full width, height derived from the input height.
    QTest::newRow("16:9 on 4:3") << 640 << 480 << wide << 0 << "crop=640:270,scale=1280:720";
    QTest::newRow("4:3 on 1080p") << 1920 << 1080 << 4.0f / 3.0f << 0 << "crop=1440:1080,scale=1280:720";
    QTest::newRow("crop before rotation")
        << 640 << 480 << 1.0f << 90 << "crop=480:480,transpose=1,scale=1280:720";
}

void TestFrameStream::filterText()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(float, ratio);
    QFETCH(int, rotation);
    QFETCH(QString, expected);

    ExposedWebcamStream stream;
    stream.setAspectRatio(ratio);
    stream.setRotation(rotation);
    QCOMPARE(QString::fromStdString(stream.filterDescription(width, height)), expected);
}

void TestFrameStream::decodesToRgba_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("rotate");
    QTest::addColumn<int>("rotation");
    QTest::addColumn<Corner>("mark");

    QTest::newRow("mjpeg 640x480") << "mjpeg" << QSize(640, 480) << "" << 0 << Corner::TopLeft;
    QTest::newRow("raw 640x480") << "rawvideo" << QSize(640, 480) << "" << 0 << Corner::TopLeft;
    QTest::newRow("mjpeg 1920x1080") << "mjpeg" << QSize(1920, 1080) << "" << 0 << Corner::TopLeft;
    QTest::newRow("raw 1920x1080") << "rawvideo" << QSize(1920, 1080) << "" << 0 << Corner::TopLeft;
    QTest::newRow("rotate 90") << "mjpeg" << QSize(640, 480) << "90" << 90 << Corner::TopRight;
    QTest::newRow("rotate 180") << "mjpeg" << QSize(640, 480) << "180" << 180 << Corner::BottomRight;
    QTest::newRow("rotate 270") << "rawvideo" << QSize(640, 480) << "270" << 270 << Corner::BottomLeft;
    QTest::newRow("rotate 45") << "mjpeg" << QSize(640, 480) << "45" << 45 << Corner::TopLeft;
}

void TestFrameStream::decodesToRgba()
{
    QFETCH(QString, codec);
    QFETCH(QSize, size);
    QFETCH(QString, rotate);
    QFETCH(int, rotation);
    QFETCH(Corner, mark);

    const QString name =
        QString("%1_%2x%3_%4.mkv").arg(codec).arg(size.width()).arg(size.height()).arg(rotate);
    const QString path = VideoFixture::make(m_dir.path(), name, {codec, size, 3, 25, rotate});
    QVERIFY(!path.isEmpty());
    // The input's own ratio: no crop, so every corner of the picture survives.
    auto stream = openFile(path, float(size.width()) / float(size.height()));
    QVERIFY(stream);
    QCOMPARE(stream->rotation(), rotation);
    QCOMPARE(stream->fps(), 25.0);

    const Frame first = stream->read();
    QVERIFY(!first.failed);
    QCOMPARE(first.image.size(), QSize(1280, 720));
    QCOMPARE(first.image.format(), QImage::Format_RGBA8888);
    QCOMPARE(first.image.bytesPerLine(), 1280 * 4);
    QVERIFY(stream->lastPacketSize() > 0);
    Corner found;
    QVERIFY2(VideoFixture::markedCorner(first.image, &found), "expected one red corner on blue");
    QCOMPARE(found, mark);

    const double firstTimestamp = first.timestamp;
    const_cast<Frame &>(first).image = QImage();
    const Frame second = stream->read();
    QVERIFY(!second.image.isNull());
    QVERIFY(qAbs(second.timestamp - firstTimestamp - 0.04) < 1e-3);
}

void TestFrameStream::openAttempts_data()
{
    QTest::addColumn<QString>("acceptedSize");
    QTest::addColumn<QString>("acceptedRate");
    QTest::addColumn<int>("acceptedCodec"); // 0 accepts either codec
    QTest::addColumn<int>("attempts");
    QTest::addColumn<QString>("lastFormat");

    QTest::newRow("720p mjpeg 30 first") << "1280x720"
                                         << "30" << 0 << 1 << "mjpeg";
    QTest::newRow("720p raw only") << "1280x720"
                                   << "30" << int(AV_CODEC_ID_RAWVIDEO) << 2 << "rawvideo";
    QTest::newRow("1080p 25 raw") << "1920x1080"
                                  << "25" << int(AV_CODEC_ID_RAWVIDEO) << 24 << "rawvideo";
    QTest::newRow("640x480 any") << "640x480"
                                 << "" << 0 << 25 << "mjpeg";
    QTest::newRow("640x480 raw at 25") << "640x480"
                                       << "25" << int(AV_CODEC_ID_RAWVIDEO) << 30 << "rawvideo";
}

void TestFrameStream::openAttempts()
{
    QFETCH(QString, acceptedSize);
    QFETCH(QString, acceptedRate);
    QFETCH(int, acceptedCodec);
    QFETCH(int, attempts);
    QFETCH(QString, lastFormat);

    QList<Attempt> seen;
    QString seenUrl;
    ExposedWebcamStream stream;
    stream.setDeviceName("/dev/video7");
    stream.setInputOpener([&](AVFormatContext **context, const std::string &url, const AVInputFormat *format,
                              AVDictionary **options) {
        seenUrl = QString::fromStdString(url);
        const Attempt attempt{option(*options, "video_size"), option(*options, "framerate"),
                              option(*options, "input_format"), int((*context)->video_codec_id)};
        seen << attempt;
        const bool accepted = format && QString(format->name).split(',').contains("v4l2") &&
                              attempt.size == acceptedSize &&
                              (acceptedRate.isEmpty() || attempt.rate == acceptedRate) &&
                              (acceptedCodec == 0 || attempt.codec == acceptedCodec);
        if (accepted)
            return avformat_open_input(context, m_raw640.toUtf8().constData(), nullptr, nullptr);
        avformat_free_context(*context);
        *context = nullptr;
        return AVERROR(EIO);
    });

    QVERIFY(stream.open());
    QCOMPARE(seenUrl, QString("/dev/video7"));
    QCOMPARE(seen.size(), attempts);
    QCOMPARE(seen.last().inputFormat, lastFormat);
    QCOMPARE(seen.last().codec, lastFormat == "mjpeg" ? int(AV_CODEC_ID_MJPEG) : int(AV_CODEC_ID_RAWVIDEO));
    // The opened "device" is the 25 fps raw clip, decoded all the way through.
    QCOMPARE(stream.fps(), 25.0);
    const Frame frame = stream.read();
    QCOMPARE(frame.image.size(), QSize(1280, 720));
}

void TestFrameStream::everyAttemptFailing()
{
    QList<Attempt> seen;
    ExposedWebcamStream stream;
    stream.setDeviceName("No Such Camera");
    stream.setInputOpener(
        [&](AVFormatContext **context, const std::string &, const AVInputFormat *, AVDictionary **options) {
            seen << Attempt{option(*options, "video_size"), option(*options, "framerate"),
                            option(*options, "input_format"), int((*context)->video_codec_id)};
            avformat_free_context(*context);
            *context = nullptr;
            return AVERROR(ENODEV);
        });

    QTest::ignoreMessage(QtCriticalMsg, "Can't open webcam stream");
    QVERIFY(!stream.open());
    QVERIFY(!stream.isOpen());

    QList<Attempt> expected;
    for (const char *size : {"1280x720", "1280x1024", "1600x1200", "1920x1080", "640x480"})
        for (const char *rate : {"30", "29.97", "25"})
            for (int codec : {7, 13})
                expected << Attempt{size, rate, codec == 7 ? "mjpeg" : "rawvideo", codec};
    QCOMPARE(seen.size(), expected.size());
    for (int i = 0; i < seen.size(); ++i) {
        QCOMPARE(seen[i].size, expected[i].size);
        QCOMPARE(seen[i].rate, expected[i].rate);
        QCOMPARE(seen[i].codec, expected[i].codec);
        QCOMPARE(seen[i].inputFormat, expected[i].inputFormat);
    }
}

void TestFrameStream::heldImageDropsPictures()
{
    auto stream = openFile(m_raw640, 4.0f / 3.0f);
    QVERIFY(stream);
    Frame first = stream->read();
    QVERIFY(!first.image.isNull());
    QImage copy = first.image;
    first.image = QImage();

    // A copy still holds the picture: the next one is decoded but dropped.
    const Frame dropped = stream->read();
    QVERIFY(dropped.image.isNull());
    QVERIFY(!dropped.failed);
    QVERIFY(dropped.timestamp > first.timestamp);

    copy = QImage();
    Frame resumed = stream->read();
    QVERIFY(!resumed.image.isNull());

    // The image stays valid after its stream is gone.
    stream.reset();
    Corner found;
    QVERIFY(VideoFixture::markedCorner(resumed.image, &found));
    QCOMPARE(found, Corner::TopLeft);
}

void TestFrameStream::aspectRatioChangeAppliesToNextFrame()
{
    const QString path = VideoFixture::make(m_dir.path(), "mjpeg720.mkv", {"mjpeg", {1280, 720}, 5, 25, {}});
    auto stream = openFile(path, 16.0f / 9.0f);
    QVERIFY(stream);
    // The mark spans the left quarter; a square centre cut leaves only its edge.
    const QPoint probe(200, 60);
    {
        const Frame whole = stream->read();
        QVERIFY(VideoFixture::isRed(whole.image.pixel(probe)));
    }
    stream->setAspectRatio(1.0f);
    const Frame cut = stream->read();
    QCOMPARE(cut.image.size(), QSize(1280, 720));
    QVERIFY(VideoFixture::isBlue(cut.image.pixel(probe)));
    QVERIFY(VideoFixture::isRed(cut.image.pixel(20, 60)));
}

void TestFrameStream::fileLoopsWithGrowingTimestamps()
{
    auto stream = openFile(m_raw640, 4.0f / 3.0f);
    QVERIFY(stream);
    double previous = -1.0;
    for (int i = 0; i < 12; ++i) { // five frames a loop: passes the end twice
        const Frame frame = stream->read();
        QVERIFY2(!frame.failed && !frame.image.isNull(), qPrintable(QString("frame %1").arg(i)));
        if (previous >= 0.0)
            QVERIFY(qAbs(frame.timestamp - previous - 0.04) < 1e-3);
        previous = frame.timestamp;
    }
}

void TestFrameStream::missingFileFailsToOpen()
{
    auto stream = std::make_unique<FFmpegFileFrameStream>();
    stream->setDeviceName(CameraList::fileCameraName(m_dir.filePath("none.mkv")).toStdString());
    QVERIFY(!stream->open());
    QVERIFY(!stream->isOpen());
    QVERIFY(stream->read().failed);
}

QTEST_GUILESS_MAIN(TestFrameStream)
#include "tst_framestream.moc"
