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
    QTemporaryDir m_dir;
    QString m_raw640;

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_raw640 = VideoFixture::make(m_dir.path(), "raw640.mkv", {"rawvideo", {640, 480}, 5, 25, {}});
        QVERIFY(!m_raw640.isEmpty());
    }

    void decodesToRgba_data()
    {
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QString>("rotate");
        QTest::addColumn<Corner>("mark");

        QTest::newRow("mjpeg 640x480") << "mjpeg" << QSize(640, 480) << "" << Corner::TopLeft;
        QTest::newRow("raw 1920x1080") << "rawvideo" << QSize(1920, 1080) << "" << Corner::TopLeft;
        QTest::newRow("rotate 90") << "mjpeg" << QSize(640, 480) << "90" << Corner::TopRight;
        QTest::newRow("rotate 180") << "mjpeg" << QSize(640, 480) << "180" << Corner::BottomRight;
        QTest::newRow("rotate 270") << "rawvideo" << QSize(640, 480) << "270" << Corner::BottomLeft;
        QTest::newRow("rotate 45") << "mjpeg" << QSize(640, 480) << "45" << Corner::TopLeft;
    }

    void decodesToRgba()
    {
        QFETCH(QString, codec);
        QFETCH(QSize, size);
        QFETCH(QString, rotate);
        QFETCH(Corner, mark);

        const QString name =
            QString("%1_%2x%3_%4.mkv").arg(codec).arg(size.width()).arg(size.height()).arg(rotate);
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

    void openAttempts_data()
    {
        QTest::addColumn<QString>("accepted"); // a pattern over the attempt text
        QTest::addColumn<bool>("opens");

        QTest::newRow("720p mjpeg at 30 first") << "1280x720@30/mjpeg" << true;
        QTest::newRow("only 640x480 raw at 25") << "640x480@25/rawvideo" << true;
        QTest::newRow("nothing") << "none" << false;
    }

    void openAttempts()
    {
        QFETCH(QString, accepted);
        QFETCH(bool, opens);

        QStringList seen;
        FFmpegWebcamFrameStream stream;
        stream.setDeviceName("/dev/video7");
        stream.setInputOpener([&](AVFormatContext **context, const std::string &url,
                                  const AVInputFormat *format, AVDictionary **options) {
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

    // A picture still held elsewhere is not overwritten: the next one is decoded
    // but dropped. A file loops with timestamps that keep growing.
    void heldPicturesAndLooping()
    {
        auto stream = openFile(m_raw640, 4.0f / 3.0f);
        QVERIFY(stream);
        Frame first = stream->read();
        QImage copy = first.image;
        first.image = QImage();
        const Frame dropped = stream->read();
        QVERIFY(dropped.image.isNull() && !dropped.failed);
        double previous = dropped.timestamp;
        QVERIFY(previous > first.timestamp);
        copy = QImage();
        QImage last;
        for (int i = 0; i < 12; ++i) { // five frames a loop: passes the end twice
            const Frame frame = stream->read();
            QVERIFY2(!frame.failed && !frame.image.isNull(), qPrintable(QString("frame %1").arg(i)));
            QVERIFY(qAbs(frame.timestamp - previous - 0.04) < 1e-3);
            previous = frame.timestamp;
            if (i == 11)
                last = frame.image;
        }
        // The image stays valid after its stream is gone.
        stream.reset();
        Corner found;
        QVERIFY(VideoFixture::markedCorner(last, &found));
        QCOMPARE(found, Corner::TopLeft);
    }

    // A square cut of a 16:9 picture, chosen while the stream runs, applies
    // to the next frame: of the mark over the left quarter only its edge stays.
    void aspectRatioChangeAppliesToNextFrame()
    {
        auto stream =
            openFile(VideoFixture::make(m_dir.path(), "mjpeg720.mkv", {"mjpeg", {1280, 720}, 5, 25, {}}),
                     16.0f / 9.0f);
        QVERIFY(stream);
        const auto red = [](const QImage &image, QPoint at) { return QColor(image.pixel(at)).red() > 180; };
        QVERIFY(red(stream->read().image, {200, 60}));
        stream->setAspectRatio(1.0f);
        const Frame cut = stream->read();
        QCOMPARE(cut.image.size(), QSize(1280, 720));
        QVERIFY(!red(cut.image, {200, 60}) && red(cut.image, {20, 60}));
    }
};

QTEST_GUILESS_MAIN(TestFrameStream)
#include "tst_framestream.moc"
