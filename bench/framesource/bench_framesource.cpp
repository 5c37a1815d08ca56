// Prints frames per second through decode, filter graph and RGBA output for
// a 1280x720 MJPEG clip and a raw YUYV clip, beside the ffmpeg command doing
// the same decode and RGBA conversion to a null output.
#include "baseffmpegframestream.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

// The clip played once from start to end through the frame stream's pipeline.
class OnePassStream : public VCam::BaseFFmpegFrameStream
{
public:
    explicit OnePassStream(QString path) : m_path(std::move(path)) {}
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

bool runFFmpeg(const QStringList &args, qint64 *elapsedMs)
{
    QProcess process;
    QElapsedTimer timer;
    timer.start();
    process.start("ffmpeg", QStringList{"-hide_banner", "-loglevel", "error", "-y"} + args);
    const bool ok = process.waitForFinished(600000) && process.exitCode() == 0;
    if (elapsedMs)
        *elapsedMs = timer.elapsed();
    if (!ok)
        std::fprintf(stderr, "ffmpeg failed: %s\n", process.readAllStandardError().constData());
    return ok;
}

bool makeClip(const QString &path, const QStringList &codecArgs, int frames)
{
    return runFFmpeg(
        QStringList{"-f", "lavfi", "-i", "testsrc2=s=1280x720:r=30", "-frames:v", QString::number(frames)} +
            codecArgs + QStringList{path},
        nullptr);
}

// Frames per second of our pipeline over the whole clip; the best of runs.
double pipelineFps(const QString &path, int runs, int *framesOut)
{
    double best = 0.0;
    for (int run = 0; run < runs; ++run) {
        OnePassStream stream(path);
        if (!stream.open())
            return 0.0;
        int frames = 0;
        quint64 checksum = 0;
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            const VCam::Frame frame = stream.read();
            if (frame.failed)
                break;
            checksum += frame.image.constBits()[frames % 1024];
            ++frames;
        }
        const double fps = frames * 1000.0 / std::max<qint64>(1, timer.elapsed());
        best = std::max(best, fps);
        *framesOut = frames;
        if (checksum == 1)
            std::printf(" "); // keeps the pixel reads from being optimised away
    }
    return best;
}

qint64 bestCommandMs(const QString &path, int runs, const QStringList &extra, const QStringList &limit = {})
{
    qint64 best = -1;
    for (int run = 0; run < runs; ++run) {
        qint64 elapsed = 0;
        if (!runFFmpeg(extra + QStringList{"-i", path, "-vf", "scale=1280:720", "-pix_fmt", "rgba"} + limit +
                           QStringList{"-f", "null", "-"},
                       &elapsed))
            return -1;
        if (best < 0 || elapsed < best)
            best = elapsed;
    }
    return best;
}

// The command's start-up (process, probing, first frame) is measured on a
// one-frame run and taken off, so only its steady frame rate is compared.
double commandFps(const QString &path, int frames, int runs, const QStringList &extra)
{
    const qint64 all = bestCommandMs(path, runs, extra);
    const qint64 one = bestCommandMs(path, runs, extra, {"-frames:v", "1"});
    if (all < 0 || one < 0)
        return 0.0;
    return (frames - 1) * 1000.0 / std::max<qint64>(1, all - one);
}

void report(const char *name, const QString &path, int runs)
{
    int frames = 0;
    const double ours = pipelineFps(path, runs, &frames);
    const double command = commandFps(path, frames, runs, {});
    const double commandOneThread = commandFps(path, frames, runs, {"-threads", "1", "-filter_threads", "1"});
    std::printf(
        "%-12s %5d frames  frame stream %7.1f fps (%4.1fx real time at 30 fps)  ffmpeg command %7.1f fps "
        "(single-threaded %7.1f fps)  ratio %5.1f%%\n",
        name, frames, ours, ours / 30.0, command, commandOneThread, 100.0 * ours / command);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString mjpeg = QDir(dir.path()).filePath("mjpeg720.mkv");
    const QString raw = QDir(dir.path()).filePath("yuyv720.nut");
    if (!makeClip(mjpeg, {"-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-q:v", "3"}, 600) ||
        !makeClip(raw, {"-c:v", "rawvideo", "-pix_fmt", "yuyv422"}, 150))
        return 1;
    const int runs = 3;
    std::printf("frame source throughput: decode, filter to 1280x720 RGBA (best of %d runs)\n", runs);
    report("720p MJPEG", mjpeg, runs);
    report("720p YUYV", raw, runs);
    return 0;
}
