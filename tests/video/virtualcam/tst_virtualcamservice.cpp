// The virtual camera service: start and stop, the pipe folder, and
// frames handed over through the output helper, against the real sink.
#include "framepattern.h"
#include "sinkprocess.h"
#include "virtualcamoutputhelper.h"
#include "virtualcamservice.h"

#include <QDir>
#include <QFile>
#include <QPainter>
#include <QTemporaryDir>
#include <QtTest>
#include <future>
#include <messagecapture.h>
#include <sys/stat.h>
#include <unistd.h>

using VCam::VirtualCamService;

namespace {

// Keeps writing until a write goes through, reading the frame from the sink
// while the write is under way (the sink's output pipe is far smaller than a
// frame). Returns the frame the sink delivered.
QByteArray deliver(const std::function<bool()> &write, SinkProcess &sink)
{
    for (int attempt = 0; attempt < 250; ++attempt) {
        auto written = std::async(std::launch::async, write);
        if (written.wait_for(std::chrono::milliseconds(20)) == std::future_status::ready && !written.get())
            continue; // not connected yet
        const QByteArray frame = sink.readFrame();
        return written.valid() && !written.get() ? QByteArray() : frame;
    }
    return {};
}

} // namespace

class TestVirtualCamService : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_runtime.reset(new QTemporaryDir);
        QVERIFY(m_runtime->isValid());
        qputenv("XDG_RUNTIME_DIR", m_runtime->path().toLocal8Bit());
        // The system's camera list: a webcam and the labelled output device.
        const QString sysfs = m_runtime->path() + "/sysfs";
        for (const auto &[node, name] :
             {std::pair<QString, QByteArray>{"video0", "Integrated Webcam"}, {"video4", "Glint Camera"}}) {
            QFile file(sysfs + "/" + node + "/name");
            QVERIFY(QDir().mkpath(sysfs + "/" + node) && file.open(QIODevice::WriteOnly));
            file.write(name + "\n");
        }
        qputenv("GLINT_VIDEO4LINUX_SYSFS", sysfs.toLocal8Bit());
        qputenv("GLINT_CAMERA_SINK", SinkProcess::program().toLocal8Bit());
    }

    void stopWhileWaitingForTheSinkIsPrompt()
    {
        VirtualCamService service(L"/nowhere");
        QVERIFY(service.start());
        // Its own pipe folder is made private.
        struct stat info;
        QVERIFY(::lstat(QFile::encodeName(directory()).constData(), &info) == 0);
        QCOMPARE(info.st_mode & 0777, 0700u);
        QTest::qWait(50);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(service.stop());
        QVERIFY2(timer.elapsed() < 100, qPrintable(QString::number(timer.elapsed()) + " ms"));
        QVERIFY2(!QFileInfo::exists(directory() + "/GlintVirtualCamEvent"),
                 "stopping clears the readiness signal");
        const QByteArray frame = FramePattern::make(0);
        QVERIFY(!service.writeFrame(FramePattern::borrow(frame), frame.size()));
    }

    // A second start keeps the writer that is connected; a frame of another
    // size reaches the pipe as 1280x720.
    void startTwiceKeepsTheFirstWriterAndFramesArriveAs720p()
    {
        VirtualCamService service(L"/nowhere");
        QVERIFY(service.start());
        SinkProcess sink(directory());
        QVERIFY(sink.start());
        QImage large(1920, 1080, QImage::Format_RGBA8888);
        large.fill(Qt::red);
        QPainter(&large).fillRect(960, 0, 960, 1080, Qt::blue);
        const QByteArray received =
            deliver([&] { return VCam::VirtualCamOutputHelper::writeFrame(service, large); }, sink);
        QCOMPARE(received.size(), 1280 * 720 * 3);
        const QImage image(reinterpret_cast<const uchar *>(received.constData()), 1280, 720,
                           QImage::Format_RGB888);
        QCOMPARE(image.pixelColor(100, 360), QColor(Qt::red));
        QCOMPARE(image.pixelColor(1180, 700), QColor(Qt::blue));

        // With the sink no longer announcing readiness, only the writer that is
        // already connected can deliver the next frame.
        QVERIFY(QFile::remove(directory() + "/GlintVirtualCamEvent"));
        QVERIFY(service.start());
        const QByteArray second = FramePattern::make(2);
        auto write = std::async(std::launch::async, [&] {
            return service.writeFrame(FramePattern::borrow(second), second.size());
        });
        QCOMPARE(FramePattern::indexOf(sink.readFrame()), int64_t(2));
        QVERIFY(write.get());
    }

    // A pipe folder that someone else prepared is refused, with a log line
    // that says why; the folder and what is in it are left as they are.
    void hostileRendezvousFolderIsRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("open to everyone") << "open";
        QTest::newRow("symbolic link") << "link";
        QTest::newRow("another owner") << "owner";
        QTest::newRow("a file") << "file";
    }
    void hostileRendezvousFolderIsRefused()
    {
        QFETCH(QString, kind);
        const QByteArray path = QFile::encodeName(directory());
        if (kind == "open") {
            QVERIFY(::mkdir(path.constData(), 0777) == 0);
            QVERIFY(::chmod(path.constData(), 0777) == 0);
        } else if (kind == "link") {
            QVERIFY(QDir().mkpath(m_runtime->path() + "/elsewhere"));
            QVERIFY(::chmod(QFile::encodeName(m_runtime->path() + "/elsewhere").constData(), 0700) == 0);
            QVERIFY(QFile::link(m_runtime->path() + "/elsewhere", directory()));
        } else if (kind == "owner") {
            if (::getuid() != 0)
                QSKIP("handing a folder to another user needs root");
            QVERIFY(::mkdir(path.constData(), 0700) == 0);
            QVERIFY(::chown(path.constData(), 65534, 65534) == 0);
        } else {
            QFile file(directory());
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        VirtualCamService service(L"/nowhere");
        MessageCapture log(nullptr, {});
        QVERIFY(!VCam::VirtualCamOutputHelper::startOutput(service));
        const QStringList capturedLog = log.messages();
        QVERIFY2(capturedLog.size() == 2 && capturedLog[0].startsWith("Virtual camera off:") &&
                     capturedLog[0].contains(directory()) && capturedLog[1] == "Camera not started",
                 qPrintable(capturedLog.join('\n')));
        const QByteArray frame = FramePattern::make(0);
        QVERIFY(!service.writeFrame(FramePattern::borrow(frame), frame.size()));
        // The sink refuses the same folder on its own.
        QProcess sink;
        sink.start(SinkProcess::program(), {"--dir", directory(), "--output", "/dev/null"});
        QVERIFY(sink.waitForFinished(5000));
        QVERIFY(sink.exitCode() != 0);
        QVERIFY(!QFileInfo::exists(directory() + "/GlintVirtualCamPipe"));
    }

    // The sink ends with the process that started it, even one killed
    // outright.
    void sinkEndsWhenItsParentDies()
    {
        QProcess parent;
        parent.start("/bin/sh",
                     {"-c", QString("'%1' --dir '%2' --output /dev/null --format rgb & echo $!; wait")
                                .arg(SinkProcess::program(), directory())});
        QVERIFY(parent.waitForReadyRead(5000));
        const qint64 sinkPid = parent.readLine().trimmed().toLongLong();
        QVERIFY(sinkPid > 0);
        QTRY_VERIFY(QFileInfo::exists(directory() + "/GlintVirtualCamEvent"));
        parent.kill();
        QVERIFY(parent.waitForFinished(5000));
        const auto gone = [&] {
            QFile stat(QString("/proc/%1/stat").arg(sinkPid));
            if (!stat.open(QIODevice::ReadOnly))
                return true;
            const QByteArray line = stat.readAll();
            return line.mid(line.lastIndexOf(')') + 2, 1) == "Z";
        };
        QVERIFY2(QTest::qWaitFor(gone, 3000), "the sink outlived its parent");
        QVERIFY(!QFileInfo::exists(directory() + "/GlintVirtualCamEvent"));
    }

private:
    QString directory() const { return m_runtime->path() + "/glint-camera"; }

    std::unique_ptr<QTemporaryDir> m_runtime;
};

QTEST_GUILESS_MAIN(TestVirtualCamService)
#include "tst_virtualcamservice.moc"
