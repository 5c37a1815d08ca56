// Frames per second and per-frame CPU time (of the whole process, the
// software renderer's threads included) from the demo camera through the
// processing worker (AR core, output conversion) to the camera sink, with no
// lens and with a face lens; then the program's time from start to its
// first frame on screen (needs an X display, e.g. under xvfb-run).
//
//   bench_processing [frames=600]
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <coreserviceworker.h>
#include <cstdio>
#include <ctime>
#include <demoframestream.h>
#include <metatypes.h>
#include <virtualcampaths.h>
#include <writeronlyoutput.h>

using namespace VCam;

namespace {

double processCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

struct Figures
{
    double fps = 0, medianMs = 0, p99Ms = 0, medianCpuMs = 0;
    int written = 0;
};

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * values.size()))];
}

Figures run(const QString &lensId, int frames)
{
    auto output = std::make_shared<WriterOnlyOutput>();
    CoreServiceWorker worker([output] { return output; });
    worker.startProcessing();
    while (!output->isConnected())
        QThread::msleep(5);
    if (!lensId.isEmpty())
        worker.setLens(lensId, QStringLiteral(GLINT_LENSES_DIR "/") + lensId);
    DemoFrameStream camera;
    camera.open();
    // Warm up: first GL use, model loading, face found.
    for (int i = 0; i < 30; ++i)
        worker.onFrameReady(camera.read().image);
    const int writtenBefore = output->written();
    std::vector<double> wall, cpu;
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < frames; ++i) {
        QElapsedTimer clock;
        clock.start();
        const double cpuStart = processCpuMs();
        Frame frame = camera.read(); // decoding is part of the road of a frame
        worker.onFrameReady(frame.image);
        frame.image = QImage();
        cpu.push_back(processCpuMs() - cpuStart);
        wall.push_back(clock.nsecsElapsed() / 1e6);
    }
    Figures figures;
    figures.fps = frames * 1000.0 / total.elapsed();
    figures.medianMs = percentile(wall, 0.5);
    figures.p99Ms = percentile(wall, 0.99);
    figures.medianCpuMs = percentile(cpu, 0.5);
    figures.written = output->written() - writtenBefore;
    worker.stopProcessing();
    return figures;
}

void timeToFirstFrame()
{
#ifdef GLINT_APP_BINARY
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::printf("start-up to first frame: skipped (no X display)\n");
        return;
    }
    QTemporaryDir config;
    QDir().mkpath(config.path() + "/Glint/Glint Camera");
    QFile settings(config.path() + "/Glint/Glint Camera/settings.json");
    settings.open(QIODevice::WriteOnly);
    settings.write(R"({"settings": {"show_onboarding": false}})");
    settings.close();
    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", config.path());
    env.insert("QT_QPA_PLATFORM", "xcb");
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    QElapsedTimer clock;
    clock.start();
    app.start(GLINT_APP_BINARY, {"--lens", GLINT_LENSES_DIR "/sunglasses"});
    QByteArray output;
    while (clock.elapsed() < 30000 && !output.contains("First frame shown")) {
        app.waitForReadyRead(100);
        output += app.readAll();
    }
    const qint64 outside = clock.elapsed();
    const int at = output.indexOf("First frame shown");
    std::printf("start-up to first frame: %s (%lld ms measured from outside)\n",
                at < 0 ? "not reached" : output.mid(at, output.indexOf('\n', at) - at).constData(),
                static_cast<long long>(outside));
    app.terminate();
    app.waitForFinished(10000);
#endif
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    registerMetaTypes();
    const int frames = argc > 1 ? std::max(60, atoi(argv[1])) : 600;
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    qputenv("GLINT_DEMO_CLIP", GLINT_DEMO_CLIP_PATH);
    VirtualCamPaths::ensureDirectory();
    QProcess sink;
    sink.start(GLINT_SINK_PROGRAM, {"--dir", QString::fromStdString(VirtualCamPaths::directory()), "--output",
                                    "/dev/null", "--format", "yuyv"});
    sink.waitForStarted();

    std::printf("demo camera -> processing -> sink, %d frames of 1280x720\n", frames);
    std::printf("%-12s %9s %11s %9s %13s %8s\n", "lens", "fps", "median ms", "p99 ms", "median cpu ms",
                "to sink");
    for (const QString &lens : {QString(), QStringLiteral("sunglasses"), QStringLiteral("big-eyes")}) {
        const Figures f = run(lens, frames);
        std::printf("%-12s %9.1f %11.2f %9.2f %13.2f %8d\n", lens.isEmpty() ? "none" : qPrintable(lens),
                    f.fps, f.medianMs, f.p99Ms, f.medianCpuMs, f.written);
    }
    sink.terminate();
    sink.waitForFinished(3000);
    timeToFirstFrame();
    return 0;
}
