#include "cameralist.h"
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

// A grabber on a file played once, like a camera whose reads fail at its end.
BaseStreamGrabber::StreamFactory playedOnce(const QString &path)
{
    return [path](const std::string &) {
        auto stream = std::make_unique<FFmpegFileFrameStream>();
        stream->setDeviceName(CameraList::fileCameraName(path).toStdString());
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
    QTemporaryDir m_dir;
    QString m_clipA;
    QString m_clipB;

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_clipA = VideoFixture::make(m_dir.path(), "a.mkv", {"mjpeg", {640, 480}, 10, 25, {}});
        m_clipB = VideoFixture::make(m_dir.path(), "b.mkv", {"rawvideo", {320, 240}, 10, 20, {}});
        QVERIFY(!m_clipA.isEmpty() && !m_clipB.isEmpty());
    }

    // Play, switch files while playing, pause, resume, stop; a device that
    // does not open leaves the grabber stopped.
    void stateChangesAndSwitches()
    {
        WebcamStreamGrabber grabber;
        grabber.setDevice(CameraList::fileCameraName(m_clipA));
        QSignalSpy opened(&grabber, &BaseStreamGrabber::streamOpened);
        QSignalSpy states(&grabber, &BaseStreamGrabber::streamStateChanged);
        FrameCounter frames(&grabber);
        grabber.changeStreamState(BaseStreamGrabber::PlayState);
        QCOMPARE(lastState(states), BaseStreamGrabber::PlayState);
        QCOMPARE(frames.count, 1); // one picture at once after opening
        QCOMPARE(frames.size, QSize(1280, 720));
        QCOMPARE(grabber.timerInterval(), 40);
        QTRY_VERIFY(frames.count >= 4);
        grabber.setDevice(CameraList::fileCameraName(m_clipA)); // same name: nothing
        grabber.setDevice(CameraList::fileCameraName(m_clipB));
        QCOMPARE(opened.count(), 2);
        QCOMPARE(grabber.timerInterval(), 50); // the new clip's 20 fps
        QVERIFY(states.isEmpty());             // still playing

        grabber.changeStreamState(BaseStreamGrabber::PauseState);
        QCOMPARE(lastState(states), BaseStreamGrabber::PauseState);
        QTRY_VERIFY(!grabber.isTimerActive());
        const int pausedAt = frames.count;
        QTest::qWait(150);
        QCOMPARE(frames.count, pausedAt);
        grabber.changeStreamState(BaseStreamGrabber::PlayState);
        QCOMPARE(lastState(states), BaseStreamGrabber::PlayState);
        QCOMPARE(opened.count(), 2); // resumed, not reopened
        QTRY_VERIFY(frames.count > pausedAt);
        grabber.changeStreamState(BaseStreamGrabber::PlayState); // same state: nothing
        QVERIFY(states.isEmpty());

        grabber.changeStreamState(BaseStreamGrabber::StopState);
        QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
        QVERIFY(!grabber.isOpened() && !grabber.isTimerActive());
        grabber.changeStreamState(BaseStreamGrabber::PauseState); // only reachable from play
        QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
        grabber.setDevice(CameraList::fileCameraName(m_dir.filePath("missing.mkv")));
        grabber.changeStreamState(BaseStreamGrabber::PlayState);
        QCOMPARE(lastState(states), BaseStreamGrabber::StopState);
        QCOMPARE(opened.count(), 2);
    }

    void reopensAfterFailedReadAndStopsWhenGone()
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
};

QTEST_GUILESS_MAIN(TestStreamGrabber)
#include "tst_streamgrabber.moc"
