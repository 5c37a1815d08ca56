// End to end processing as the application does it: clip frames decoded and
// cropped to the application's aspect on a processing thread of their own,
// paced at the clip's rate, through the processing worker (AR core, lens,
// output conversion) to the camera sink, with each processed frame handed to
// the main thread as the preview would get it. For every clip and every
// sample lens: frames per second, per-frame wall time (median, p99), CPU time
// of the whole process per frame (the software renderer's and the face
// search's threads included) and of the processing thread alone, how long after the lens was chosen the first
// face was seen, and from then on the share of frames in which the lens saw
// a face ("kept") and all of the clip's faces ("all").
//
//   bench_processing [--frames N] [--deterministic] [--clip demo|moving|four] [--lens name|none]...
//                    [--background off|blur|strong-blur|image]
//
// --deterministic uses the lockstep face search of tests (results do not
// depend on the machine's speed); without it the figures are the user's.
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <benchsupport.h>
#include <coreserviceworker.h>
#include <cstdio>
#include <ctime>
#include <demoframestream.h>
#include <metatypes.h>
#include <virtualcampaths.h>
#include <writeronlyoutput.h>

using namespace VCam;

namespace {

double cpuMs(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

// The whole process's CPU time, and the processing thread's own: what a
// frame costs on the thread that carries it, little changed by other
// programs' load.
double processCpuMs()
{
    return cpuMs(CLOCK_PROCESS_CPUTIME_ID);
}

double threadCpuMs()
{
    return cpuMs(CLOCK_THREAD_CPUTIME_ID);
}

struct Clip
{
    const char *name;
    const char *path;
    int faces; // faces in every frame of the clip
};

struct Figures
{
    double fps = 0, medianMs = 0, p99Ms = 0, medianCpuMs = 0, cpuPercent = 0, threadMedianMs = 0,
           threadP99Ms = 0;
    int frames = 0, sinceFirstFace = 0, withFace = 0, withAllFaces = 0, written = 0;
    double firstFaceMs = -1;
};

QString lensPath(const QString &lens)
{
    return lens.isEmpty() ? QString() : QStringLiteral(GLINT_LENSES_DIR "/") + lens;
}

// Runs on the processing thread, like the application's worker.
Figures runOnProcessingThread(const Clip &clip, const QString &lens, int frames, bool deterministic,
                              const BackgroundSetting &background, QObject *preview)
{
    auto output = std::make_shared<WriterOnlyOutput>();
    CoreServiceWorker worker([output] { return output; });
    worker.setDeterministicTracking(deterministic);
    QObject::connect(
        &worker, &CoreServiceWorker::frameReady, preview, [](const QImage &) {}, Qt::QueuedConnection);
    worker.startProcessing();
    while (!output->isConnected())
        QThread::msleep(5);
    QString backgroundError;
    QObject::connect(&worker, &CoreServiceWorker::backgroundEffectAnswered,
                     [&](const BackgroundSetting &, const QString &error) { backgroundError = error; });
    worker.setBackgroundEffect(background);
    if (!backgroundError.isEmpty())
        qFatal("background effect: %s", qPrintable(backgroundError));
    qputenv("GLINT_DEMO_CLIP", clip.path);
    DemoFrameStream camera;
    camera.setAspectRatio(CoreServiceWorker::kFrameAspectRatio);
    camera.open();
    const double period = 1000.0 / camera.fps();
    // Warm up: first GL use, lens and model loading.
    worker.setLens(lens, lensPath(lens));
    for (int i = 0; i < 30; ++i) {
        Frame frame = camera.read();
        worker.onFrameReady(frame.image, frame.timestamp);
    }
    // The lens chosen again: tracking starts afresh, as when a user picks it.
    worker.setLens(lens, lensPath(lens));
    const int writtenBefore = output->written();
    std::vector<double> wall, cpu, threadCpu;
    Figures figures;
    QElapsedTimer total;
    total.start();
    const double cpuTotalStart = processCpuMs();
    double nextTick = 0;
    for (int i = 0; i < frames; ++i) {
        const double wait = nextTick - total.nsecsElapsed() / 1e6;
        if (wait > 0)
            QThread::usleep(static_cast<unsigned long>(wait * 1000));
        const double startMs = total.nsecsElapsed() / 1e6;
        // A late frame is not made up for, as a camera would not wait either.
        nextTick = std::max(nextTick, startMs) + period;
        const double cpuStart = processCpuMs();
        const double threadStart = threadCpuMs();
        Frame frame = camera.read(); // decoding is part of the road of a frame
        worker.onFrameReady(frame.image, frame.timestamp);
        frame.image = QImage();
        cpu.push_back(processCpuMs() - cpuStart);
        threadCpu.push_back(threadCpuMs() - threadStart);
        wall.push_back(total.nsecsElapsed() / 1e6 - startMs);
        const int faces = worker.trackedFaceCount();
        if (faces > 0 && figures.firstFaceMs < 0)
            figures.firstFaceMs = startMs;
        if (figures.firstFaceMs >= 0) {
            ++figures.sinceFirstFace;
            figures.withFace += faces > 0;
            figures.withAllFaces += faces >= clip.faces;
        }
    }
    figures.frames = frames;
    figures.fps = frames * 1000.0 / total.elapsed();
    figures.medianMs = Bench::percentile(wall, 0.5);
    figures.p99Ms = Bench::percentile(wall, 0.99);
    figures.medianCpuMs = Bench::percentile(cpu, 0.5);
    figures.threadMedianMs = Bench::percentile(threadCpu, 0.5);
    figures.threadP99Ms = Bench::percentile(threadCpu, 0.99);
    figures.cpuPercent = 100.0 * (processCpuMs() - cpuTotalStart) / std::max<qint64>(1, total.elapsed());
    figures.written = output->written() - writtenBefore;
    worker.stopProcessing();
    return figures;
}

Figures run(const Clip &clip, const QString &lens, int frames, bool deterministic,
            const BackgroundSetting &background)
{
    QObject preview; // stands for the preview item on the main thread
    Figures figures;
    QEventLoop loop;
    QThread *thread = QThread::create(
        [&] { figures = runOnProcessingThread(clip, lens, frames, deterministic, background, &preview); });
    QObject::connect(thread, &QThread::finished, &loop, &QEventLoop::quit);
    thread->start();
    loop.exec();
    thread->wait();
    delete thread;
    return figures;
}

QStringList sampleLenses()
{
    QStringList lenses{QString()};
    lenses += QDir(QStringLiteral(GLINT_LENSES_DIR)).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    return lenses;
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    registerMetaTypes();
    const std::vector<Clip> allClips{{"demo", GLINT_DEMO_CLIP_PATH, 1},
                                     {"moving", GLINT_MOVING_CLIP_PATH, 1},
                                     {"four", GLINT_FOUR_FACES_CLIP_PATH, 4}};
    int frames = 300;
    bool deterministic = false;
    std::vector<Clip> clips;
    QStringList lenses;
    BackgroundSetting background;
    QString backgroundName = QStringLiteral("off");
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        const QString &arg = args[i];
        const QString value = i + 1 < args.size() ? args[i + 1] : QString();
        if (arg == "--frames" && ++i)
            frames = std::max(60, value.toInt());
        else if (arg == "--deterministic")
            deterministic = true;
        else if (arg == "--clip" && ++i) {
            for (const Clip &clip : allClips)
                if (value == clip.name)
                    clips.push_back(clip);
        } else if (arg == "--lens" && ++i) {
            lenses << (value == "none" ? QString() : value);
        } else if (arg == "--background" && ++i) {
            backgroundName = value;
            background.mode = value == "image" ? BackgroundMode::Image
                              : value == "off" ? BackgroundMode::Off
                                               : BackgroundMode::Blur;
            background.blurStrength = value == "strong-blur" ? BlurStrength::Strong : BlurStrength::Light;
            if (background.mode == BackgroundMode::Image)
                background.imagePath = QStringLiteral(GLINT_BACKGROUNDS_DIR "/soft-gradient.jpg");
        } else {
            std::fprintf(stderr,
                         "usage: %s [--frames N] [--deterministic] [--clip demo|moving|four] "
                         "[--lens name|none]... [--background off|blur|strong-blur|image]\n",
                         argv[0]);
            return 2;
        }
    }
    if (clips.empty())
        clips = allClips;
    if (lenses.isEmpty())
        lenses = sampleLenses();

    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    VirtualCamPaths::ensureDirectory();
    QProcess sink;
    sink.start(GLINT_SINK_PROGRAM, {"--dir", QString::fromStdString(VirtualCamPaths::directory()), "--output",
                                    "/dev/null", "--format", "yuyv"});
    sink.waitForStarted();

    std::printf(
        "clip -> processing thread -> sink, %d frames of 1280x720 paced at the clip rate, %s face search, "
        "background effect %s\n",
        frames, deterministic ? "lockstep" : "background (as in the application)",
        qPrintable(backgroundName));
    std::printf("load average at start: %s\n", Bench::loadAverage().constData());
    std::printf("%-7s %-11s %6s %7s %7s %7s %7s %7s %6s %7s %7s %7s %7s\n", "clip", "lens", "fps", "med ms",
                "p99 ms", "thr med", "thr p99", "cpu ms", "cpu %", "1st ms", "kept %", "all %", "to sink");
    for (const Clip &clip : clips) {
        for (const QString &lens : lenses) {
            const Figures f = run(clip, lens, frames, deterministic, background);
            const double since = std::max(1, f.sinceFirstFace) / 100.0;
            std::printf("%-7s %-11s %6.1f %7.2f %7.2f %7.2f %7.2f %7.2f %6.0f %7.0f %7.1f %7.1f %7d\n",
                        clip.name, lens.isEmpty() ? "none" : qPrintable(lens), f.fps, f.medianMs, f.p99Ms,
                        f.threadMedianMs, f.threadP99Ms, f.medianCpuMs, f.cpuPercent, f.firstFaceMs,
                        f.withFace / since, f.withAllFaces / since, f.written);
            std::fflush(stdout);
        }
    }
    std::printf("load average at end: %s\n", Bench::loadAverage().constData());
    sink.terminate();
    sink.waitForFinished(3000);
    return 0;
}
