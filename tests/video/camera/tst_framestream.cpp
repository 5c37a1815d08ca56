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

// One open attempt as "size@rate/input format/codec id".
QString describeAttempt(AVFormatContext *context, AVDictionary *options)
{
    auto option = [options](const char *key) {
        const AVDictionaryEntry *entry = av_dict_get(options, key, nullptr, 0);
        return entry ? QString::fromUtf8(entry->value) : QString();
    };
    return QString("%1@%2/%3/%4")
        .arg(option("video_size"), option("framerate"), option("input_format"))
        .arg(int(context->video_codec_id));
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
    void decodesToRgba_data();
    void decodesToRgba();
    void openAttempts_data();
    void openAttempts();
    void heldImageDropsPictures();
    void aspectRatioChangeAppliesToNextFrame();
    void fileLoopsWithGrowingTimestamps();

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

void TestFrameStream::decodesToRgba_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("rotate");
    QTest::addColumn<Corner>("mark");
    QTest::addColumn<QString>("container");

    QTest::newRow("mjpeg 640x480") << "mjpeg" << QSize(640, 480) << "" << Corner::TopLeft << "mkv";
    QTest::newRow("raw 1920x1080") << "rawvideo" << QSize(1920, 1080) << "" << Corner::TopLeft << "mkv";
    QTest::newRow("rotate 90") << "mjpeg" << QSize(640, 480) << "90" << Corner::TopRight << "mkv";
    QTest::newRow("rotate 180") << "mjpeg" << QSize(640, 480) << "180" << Corner::BottomRight << "mkv";
    QTest::newRow("rotate 270") << "rawvideo" << QSize(640, 480) << "270" << Corner::BottomLeft << "mkv";
    QTest::newRow("rotate 45") << "mjpeg" << QSize(640, 480) << "45" << Corner::TopLeft << "mkv";
    QTest::newRow("display matrix 90") << "mjpeg" << QSize(640, 480) << "90" << Corner::TopRight << "mp4";
}

void TestFrameStream::decodesToRgba()
{
    QFETCH(QString, codec);
    QFETCH(QSize, size);
    QFETCH(QString, rotate);
    QFETCH(Corner, mark);
    QFETCH(QString, container);

    const QString name =
        QString("%1_%2x%3_%4.%5").arg(codec).arg(size.width()).arg(size.height()).arg(rotate, container);
    const QString path = VideoFixture::make(m_dir.path(), name, {codec, size, 3, 25, rotate});
    QVERIFY(!path.isEmpty());
    // The input's own ratio: no crop, so every corner of the picture survives.
    auto stream = openFile(path, float(size.width()) / float(size.height()));
    QVERIFY(stream);
    QCOMPARE(stream->rotation(), rotate.toInt());
    QCOMPARE(stream->fps(), 25.0);

    const Frame frame = stream->read();
    QVERIFY(!frame.failed);
    QCOMPARE(frame.image.size(), QSize(1280, 720));
    QCOMPARE(frame.image.format(), QImage::Format_RGBA8888);
    QCOMPARE(frame.image.bytesPerLine(), 1280 * 4);
    QVERIFY(stream->lastPacketSize() > 0);
    Corner found;
    QVERIFY2(VideoFixture::markedCorner(frame.image, &found), "expected one red corner on blue");
    QCOMPARE(found, mark);
}

void TestFrameStream::openAttempts_data()
{
    QTest::addColumn<QString>("accepted"); // a pattern over the attempt text
    QTest::addColumn<bool>("opens");

    QTest::newRow("720p mjpeg at 30 first") << "1280x720@30/mjpeg" << true;
    QTest::newRow("720p raw only") << "1280x720@30/rawvideo" << true;
    QTest::newRow("only 640x480") << "640x480@" << true;
    QTest::newRow("only 640x480 raw at 25") << "640x480@25/rawvideo" << true;
    QTest::newRow("nothing") << "none" << false;
}

void TestFrameStream::openAttempts()
{
    QFETCH(QString, accepted);
    QFETCH(bool, opens);

    QStringList seen;
    FFmpegWebcamFrameStream stream;
    stream.setDeviceName("/dev/video7");
    stream.setInputOpener([&](AVFormatContext **context, const std::string &url, const AVInputFormat *format,
                              AVDictionary **options) {
        seen << describeAttempt(*context, *options);
        const bool v4l2 = format && QString(format->name).split(',').contains("v4l2");
        if (v4l2 && url == "/dev/video7" && seen.last().startsWith(accepted))
            return avformat_open_input(context, m_raw640.toUtf8().constData(), nullptr, nullptr);
        avformat_free_context(*context);
        *context = nullptr;
        return AVERROR(ENODEV);
    });

    if (!opens)
        QTest::ignoreMessage(QtCriticalMsg, "Can't open webcam stream");
    QCOMPARE(stream.open(), opens);
    QCOMPARE(stream.isOpen(), opens);
    // 720p MJPEG at 30 fps is asked for first; every attempt is a new one, and
    // the first that the device takes is kept.
    QVERIFY(seen.first().startsWith("1280x720@30/mjpeg"));
    QCOMPARE(QSet<QString>(seen.begin(), seen.end()).size(), seen.size());
    for (int i = 0; i + 1 < seen.size(); ++i)
        QVERIFY2(!seen[i].startsWith(accepted), qPrintable(seen[i]));
    QCOMPARE(seen.last().startsWith(accepted), opens);
    if (opens) {
        // The "device" is a 25 fps raw clip, decoded all the way through.
        QCOMPARE(stream.fps(), 25.0);
        QCOMPARE(stream.read().image.size(), QSize(1280, 720));
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

QTEST_GUILESS_MAIN(TestFrameStream)
#include "tst_framestream.moc"
