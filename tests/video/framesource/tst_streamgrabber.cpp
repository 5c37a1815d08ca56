#include "baseffmpegframestream.h"
#include "cameralist.h"
#include "demoframestream.h"
#include "ffmpegwebcamframestream.h"
#include "videofixture.h"
#include "webcamstreamgrabber.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

extern "C" {
#include <libavformat/avformat.h>
}

using namespace VCam;
using State = BaseStreamGrabber::State;

namespace {

// A video file played once, like a camera whose reads fail at some point:
// at its end every read fails until the grabber reopens it.
class OneShotFileStream : public BaseFFmpegFrameStream
{
public:
    explicit OneShotFileStream(QString path) : m_path(std::move(path)) {}
    void setDeviceName(std::string) override {}
    std::string deviceName() const override { return m_path.toStdString(); }

protected:
    bool openInput() override
    {
        return avformat_open_input(&m_formatContext, m_path.toUtf8().constData(), nullptr, nullptr) == 0;
    }

private:
    QString m_path;
};

int g_reopenFailures = 0;
QtMessageHandler g_previousHandler = nullptr;

void countReopenFailures(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (message.contains("could not be reopened"))
        ++g_reopenFailures;
    g_previousHandler(type, context, message);
}

// Counts pictures without keeping them: a kept image would hold back the next.
struct FrameCounter
{
    explicit FrameCounter(BaseStreamGrabber *grabber)
    {
        QObject::connect(grabber, &BaseStreamGrabber::frameReady, [this](const QImage &image) {
            ++count;
            size = image.size();
        });
    }
    int count = 0;
    QSize size;
};

QString fileCamera(const QString &path)
{
    return CameraList::fileCameraName(path);
}

} // namespace

class TestStreamGrabber : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void stateChanges();
    void failedOpenStaysStopped();
    void heldImageHoldsBackFrames();
    void failedReadReopensOnNextTick();
    void streamThatCannotReopenStops();
    void setDeviceWhileStoppedOnlyStoresName();
    void setDeviceWhilePlayingReopens();
    void aspectRatioCarriesToNewStream();
    void demoCameraPlays();
    void cameraNames();

private:
    QTemporaryDir m_dir;
    QString m_clipA;
    QString m_clipB;
};

void TestStreamGrabber::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_clipA = VideoFixture::make(m_dir.path(), "a.mkv", {"mjpeg", {640, 480}, 10, 25, {}});
    m_clipB = VideoFixture::make(m_dir.path(), "b.mkv", {"rawvideo", {320, 240}, 10, 20, {}});
    QVERIFY(!m_clipA.isEmpty() && !m_clipB.isEmpty());
}

void TestStreamGrabber::stateChanges()
{
    WebcamStreamGrabber grabber;
    grabber.setDevice(fileCamera(m_clipA));
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    FrameCounter frames(&grabber);

    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 1);
    QCOMPARE(states.count(), 1);
    QCOMPARE(states.takeFirst().at(0).value<State>(), BaseStreamGrabber::PlayState);
    QCOMPARE(frames.count, 1); // one picture at once after opening
    QCOMPARE(frames.size, QSize(1280, 720));
    QCOMPARE(grabber.timerInterval(), 40);
    QVERIFY(grabber.isTimerActive());
    QTRY_VERIFY(frames.count >= 4);

    grabber.changeStreamState(BaseStreamGrabber::PauseState);
    QCOMPARE(states.takeFirst().at(0).value<State>(), BaseStreamGrabber::PauseState);
    QTRY_VERIFY(!grabber.isTimerActive());
    const int pausedAt = frames.count;
    QTest::qWait(150);
    QCOMPARE(frames.count, pausedAt);

    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(states.takeFirst().at(0).value<State>(), BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 1); // resumed, not reopened
    QTRY_VERIFY(frames.count > pausedAt);

    grabber.changeStreamState(BaseStreamGrabber::PlayState); // same state: nothing
    QCOMPARE(states.count(), 0);

    grabber.changeStreamState(BaseStreamGrabber::StopState);
    QCOMPARE(states.takeFirst().at(0).value<State>(), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isOpened());
    QVERIFY(!grabber.isTimerActive());

    // Pause is only reachable from play: the unchanged state is reported.
    grabber.changeStreamState(BaseStreamGrabber::PauseState);
    QCOMPARE(states.takeFirst().at(0).value<State>(), BaseStreamGrabber::StopState);

    QSignalSpy finished(&grabber, &BaseStreamGrabber::finished);
    grabber.start();
    QCOMPARE(grabber.state(), BaseStreamGrabber::PlayState);
    grabber.stop();
    QCOMPARE(finished.count(), 1);
    QCOMPARE(grabber.state(), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isTimerActive());
}

void TestStreamGrabber::failedOpenStaysStopped()
{
    WebcamStreamGrabber grabber;
    grabber.setDevice(fileCamera(m_dir.filePath("missing.mkv")));
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 0);
    QCOMPARE(states.count(), 1);
    QCOMPARE(states.first().at(0).value<State>(), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isTimerActive());
}

void TestStreamGrabber::heldImageHoldsBackFrames()
{
    WebcamStreamGrabber grabber;
    grabber.setDevice(fileCamera(m_clipA));
    QImage held;
    int emitted = 0;
    connect(&grabber, &BaseStreamGrabber::frameReady, this, [&](const QImage &image) {
        ++emitted;
        if (held.isNull())
            held = image;
    });
    grabber.start();
    QCOMPARE(emitted, 1);
    QTest::qWait(300); // about seven ticks, all dropped while the image is held
    QCOMPARE(emitted, 1);
    QCOMPARE(grabber.state(), BaseStreamGrabber::PlayState);

    held = QImage();
    disconnect(&grabber, &BaseStreamGrabber::frameReady, this, nullptr);
    FrameCounter frames(&grabber);
    QTRY_VERIFY(frames.count >= 1);
}

void TestStreamGrabber::failedReadReopensOnNextTick()
{
    const QString path = VideoFixture::make(m_dir.path(), "short.mkv", {"mjpeg", {320, 240}, 3, 25, {}});
    BaseStreamGrabber grabber(
        [path](const std::string &) { return std::make_unique<OneShotFileStream>(path); });
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
    FrameCounter frames(&grabber);
    grabber.start();
    // Three pictures, a failed read at the end, then the reopened file again.
    QTRY_VERIFY(opened.count() >= 2);
    QTRY_VERIFY(frames.count >= 5);
    QCOMPARE(grabber.state(), BaseStreamGrabber::PlayState);
    QVERIFY(grabber.isTimerActive());
}

void TestStreamGrabber::streamThatCannotReopenStops()
{
    const QString path = VideoFixture::make(m_dir.path(), "gone.mkv", {"mjpeg", {320, 240}, 3, 25, {}});
    BaseStreamGrabber grabber(
        [path](const std::string &) { return std::make_unique<OneShotFileStream>(path); });
    FrameCounter frames(&grabber);
    grabber.start();
    QVERIFY(QFile::remove(path)); // the open file keeps playing to its end

    g_reopenFailures = 0;
    g_previousHandler = qInstallMessageHandler(countReopenFailures);
    QTRY_COMPARE(grabber.state(), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isTimerActive());
    QVERIFY(!grabber.isOpened());
    QTest::qWait(200); // no ticks and no more messages once stopped
    qInstallMessageHandler(g_previousHandler);
    QCOMPARE(g_reopenFailures, 1);
    QCOMPARE(frames.count, 3);
}

void TestStreamGrabber::setDeviceWhileStoppedOnlyStoresName()
{
    WebcamStreamGrabber grabber;
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
    grabber.setDevice("Some Webcam");
    QCOMPARE(grabber.stream()->deviceName(), std::string("Some Webcam"));
    IFrameStream *webcam = grabber.stream();
    grabber.setDevice("Some Webcam");
    QCOMPARE(grabber.stream(), webcam);

    grabber.setDevice(fileCamera(m_clipA));
    QCOMPARE(grabber.stream()->deviceName(), fileCamera(m_clipA).toStdString());
    QCOMPARE(states.count(), 0);
    QCOMPARE(opened.count(), 0);
    QVERIFY(!grabber.isOpened());
}

void TestStreamGrabber::setDeviceWhilePlayingReopens()
{
    WebcamStreamGrabber grabber;
    grabber.setDevice(fileCamera(m_clipA));
    grabber.start();
    QCOMPARE(grabber.timerInterval(), 40);
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);

    grabber.setDevice(fileCamera(m_clipA)); // same name: nothing
    QCOMPARE(opened.count(), 0);

    grabber.setDevice(fileCamera(m_clipB));
    QCOMPARE(opened.count(), 1);
    QCOMPARE(grabber.timerInterval(), 50); // the new clip's 20 fps
    QCOMPARE(states.count(), 0);           // still playing

    grabber.setDevice(fileCamera(m_dir.filePath("missing.mkv")));
    QCOMPARE(states.count(), 1);
    QCOMPARE(states.first().at(0).value<State>(), BaseStreamGrabber::StopState);
    QTRY_VERIFY(!grabber.isTimerActive());
}

void TestStreamGrabber::aspectRatioCarriesToNewStream()
{
    WebcamStreamGrabber grabber;
    grabber.setAspectRatio(16.0f / 9.0f);
    grabber.setDevice(fileCamera(m_clipA));
    auto *stream = dynamic_cast<FFmpegWebcamFrameStream *>(grabber.stream());
    QVERIFY(stream);
    QCOMPARE(stream->aspectRatio(), 16.0f / 9.0f);
}

void TestStreamGrabber::demoCameraPlays()
{
    QVERIFY2(QFile::exists(DemoFrameStream::clipPath()),
             "the build makes the demo clip; tests find it via GLINT_DEMO_CLIP");
    WebcamStreamGrabber grabber;
    grabber.setAspectRatio(16.0f / 9.0f);
    grabber.setDevice(CameraList::demoCameraName());
    QSignalSpy frames(&grabber, &BaseStreamGrabber::frameReady);
    grabber.start();
    QCOMPARE(grabber.state(), BaseStreamGrabber::PlayState);
    QCOMPARE(grabber.timerInterval(), 33);
    QCOMPARE(frames.count(), 1);
    QCOMPARE(frames.first().at(0).value<QImage>().size(), QSize(1280, 720));
    grabber.changeStreamState(BaseStreamGrabber::StopState);

    // The clip moves: a picture 1.5 s in differs clearly from the first one.
    DemoFrameStream stream;
    stream.setAspectRatio(16.0f / 9.0f);
    QVERIFY(stream.open());
    const QImage first = stream.read().image.copy();
    for (int i = 0; i < 44; ++i)
        QVERIFY(!stream.read().failed);
    const QImage later = stream.read().image;
    QVERIFY(!first.isNull() && !later.isNull());
    qint64 difference = 0;
    for (int y = 0; y < 720; y += 8)
        for (int x = 0; x < 1280; x += 8)
            difference += qAbs(qGray(first.pixel(x, y)) - qGray(later.pixel(x, y)));
    const double meanDifference = double(difference) / (160 * 90);
    QVERIFY2(meanDifference > 5.0, qPrintable(QString::number(meanDifference)));
}

void TestStreamGrabber::cameraNames()
{
    QCOMPARE(CameraList::withDemoFallback({}), QStringList{CameraList::demoCameraName()});
    QCOMPARE(CameraList::withDemoFallback({"HD Webcam"}), QStringList{"HD Webcam"});
    QVERIFY(!CameraList::availableCameras().isEmpty());

    const std::string file = CameraList::fileCameraName("/videos/a clip.mp4").toStdString();
    QCOMPARE(CameraList::kindOf(file), CameraList::Kind::File);
    QCOMPARE(CameraList::filePathOf(file), std::string("/videos/a clip.mp4"));
    QCOMPARE(CameraList::kindOf(CameraList::demoCameraName().toStdString()), CameraList::Kind::Demo);
    QCOMPARE(CameraList::kindOf("Integrated Camera: file:x"), CameraList::Kind::Webcam);
    QCOMPARE(CameraList::filePathOf("Integrated Camera"), std::string());
}

QTEST_GUILESS_MAIN(TestStreamGrabber)
#include "tst_streamgrabber.moc"
