#include "cameralist.h"
#include "demoframestream.h"
#include "ffmpegfileframestream.h"
#include "videofixture.h"
#include "webcamstreamgrabber.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <messagecapture.h>

using namespace VCam;
using State = BaseStreamGrabber::State;

namespace {

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

// A grabber on a file played once, like a camera whose reads fail at its end.
BaseStreamGrabber::StreamFactory playedOnce(const QString &path)
{
    return [path](const std::string &) {
        auto stream = std::make_unique<FFmpegFileFrameStream>();
        stream->setDeviceName(fileCamera(path).toStdString());
        stream->setLooping(false);
        return stream;
    };
}

State lastState(QSignalSpy &spy)
{
    return spy.isEmpty() ? State(-1) : spy.takeLast().at(0).value<State>();
}

} // namespace

class TestStreamGrabber : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void stateChanges();
    void reopensAfterFailedReadAndStopsWhenGone();
    void setDeviceWhileStopped();
    void setDeviceWhilePlaying();
    void demoCamera();

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
    QCOMPARE(lastState(states), BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 1);
    QCOMPARE(frames.count, 1); // one picture at once after opening
    QCOMPARE(frames.size, QSize(1280, 720));
    QCOMPARE(grabber.timerInterval(), 40);
    QTRY_VERIFY(frames.count >= 4);

    grabber.changeStreamState(BaseStreamGrabber::PauseState);
    QCOMPARE(lastState(states), BaseStreamGrabber::PauseState);
    QTRY_VERIFY(!grabber.isTimerActive());
    const int pausedAt = frames.count;
    QTest::qWait(150);
    QCOMPARE(frames.count, pausedAt);

    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(lastState(states), BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 1); // resumed, not reopened
    QTRY_VERIFY(frames.count > pausedAt);
    grabber.changeStreamState(BaseStreamGrabber::PlayState); // same state: nothing
    QVERIFY(states.isEmpty());

    grabber.changeStreamState(BaseStreamGrabber::StopState);
    QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isOpened() && !grabber.isTimerActive());
    // Pause is only reachable from play: the unchanged state is reported.
    grabber.changeStreamState(BaseStreamGrabber::PauseState);
    QCOMPARE(lastState(states), BaseStreamGrabber::StopState);

    QSignalSpy finished(&grabber, &BaseStreamGrabber::finished);
    grabber.start();
    grabber.stop();
    QCOMPARE(finished.count(), 1);
    QVERIFY(grabber.state() == BaseStreamGrabber::StopState && !grabber.isTimerActive());

    // A device that does not open leaves the grabber stopped, without streamOpened.
    grabber.setDevice(fileCamera(m_dir.filePath("missing.mkv")));
    states.clear();
    opened.clear();
    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
    QCOMPARE(opened.count(), 0);
}

void TestStreamGrabber::reopensAfterFailedReadAndStopsWhenGone()
{
    const QString path = VideoFixture::make(m_dir.path(), "short.mkv", {"mjpeg", {320, 240}, 3, 25, {}});
    BaseStreamGrabber grabber(playedOnce(path));
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
    FrameCounter frames(&grabber);
    grabber.start();
    // Three pictures, a failed read at the end, then the reopened file again.
    QTRY_VERIFY(opened.count() >= 2 && frames.count >= 4);
    QCOMPARE(grabber.state(), BaseStreamGrabber::PlayState);

    // Gone for good: the open file plays to its end, the reopen fails.
    QVERIFY(QFile::remove(path));
    MessageCapture log(nullptr, {});
    QTRY_COMPARE(grabber.state(), BaseStreamGrabber::StopState);
    QVERIFY(!grabber.isTimerActive() && !grabber.isOpened());
    const int framesAtStop = frames.count;
    QTest::qWait(200); // no ticks and no more messages once stopped
    QCOMPARE(log.count("could not be reopened"), 1);
    QCOMPARE(frames.count, framesAtStop);
}

void TestStreamGrabber::setDeviceWhileStopped()
{
    WebcamStreamGrabber grabber;
    grabber.setAspectRatio(16.0f / 9.0f);
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    grabber.setDevice("Some Webcam");
    grabber.setDevice(fileCamera(m_clipA));
    auto *file = dynamic_cast<FFmpegFileFrameStream *>(grabber.stream());
    QVERIFY(file);
    QCOMPARE(file->aspectRatio(), 16.0f / 9.0f); // carried over to a stream of another kind
    QVERIFY(states.isEmpty());
    QVERIFY(!grabber.isOpened());
}

void TestStreamGrabber::setDeviceWhilePlaying()
{
    WebcamStreamGrabber grabber;
    grabber.setDevice(fileCamera(m_clipA));
    grabber.start();
    QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
    QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);

    grabber.setDevice(fileCamera(m_clipA)); // same name: nothing
    QCOMPARE(opened.count(), 0);
    grabber.setDevice(fileCamera(m_clipB));
    QCOMPARE(opened.count(), 1);
    QCOMPARE(grabber.timerInterval(), 50); // the new clip's 20 fps
    QVERIFY(states.isEmpty());             // still playing

    // A camera of another kind chosen while paused is opened on resume.
    grabber.changeStreamState(BaseStreamGrabber::PauseState);
    grabber.setDevice(CameraList::demoCameraName());
    grabber.changeStreamState(BaseStreamGrabber::PlayState);
    QCOMPARE(lastState(states), BaseStreamGrabber::PlayState);
    QCOMPARE(opened.count(), 2);
    QCOMPARE(grabber.timerInterval(), 33);
    QVERIFY(grabber.isTimerActive());

    grabber.setDevice(fileCamera(m_dir.filePath("missing.mkv")));
    QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
    QTRY_VERIFY(!grabber.isTimerActive());
}

void TestStreamGrabber::demoCamera()
{
    QVERIFY2(QFile::exists(DemoFrameStream::clipPath()),
             "the build makes the clip; GLINT_DEMO_CLIP points to it");

    WebcamStreamGrabber grabber;
    grabber.setDevice(CameraList::demoCameraName());
    FrameCounter frames(&grabber);
    grabber.start();
    QCOMPARE(grabber.timerInterval(), 33);
    QCOMPARE(frames.size, QSize(1280, 720));

    // The clip moves: a picture 1.5 s in differs clearly from the first one.
    DemoFrameStream stream;
    stream.setAspectRatio(16.0f / 9.0f);
    QVERIFY(stream.open());
    const QImage first = stream.read().image.copy();
    for (int i = 0; i < 44; ++i)
        QVERIFY(!stream.read().failed);
    const QImage later = stream.read().image;
    qint64 difference = 0;
    for (int y = 0; y < 720; y += 8)
        for (int x = 0; x < 1280; x += 8)
            difference += qAbs(qGray(first.pixel(x, y)) - qGray(later.pixel(x, y)));
    const double meanDifference = double(difference) / (160 * 90);
    QVERIFY2(meanDifference > 5.0, qPrintable(QString::number(meanDifference)));
}

QTEST_GUILESS_MAIN(TestStreamGrabber)
#include "tst_streamgrabber.moc"
