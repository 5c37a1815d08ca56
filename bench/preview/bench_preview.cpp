// The preview as the user sees it: the real application under the current X
// display (run it under xvfb-run) showing a 30 fps and a 120 fps clip as its
// demo camera, on each Qt Quick backend (the automatic choice first), with
// no lens and with sunglasses. For each run: the preview pictures per second
// the window really put on screen (its scene graph's frame swaps that
// carried a new picture, which the application logs with
// GLINT_PREVIEW_STATS=1, beside all swaps) and the application's CPU
// from /proc, next to ffplay's CPU showing the same clip in the same run.
//
//   bench_preview [seconds per run (default 15)]
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <unistd.h>

namespace {

QByteArray loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray("unknown");
}

// User and system time of a process so far, in seconds.
double cpuSeconds(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    // Fields after the command name (which may hold spaces) in parentheses.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return (fields[11].toDouble() + fields[12].toDouble()) / double(sysconf(_SC_CLK_TCK));
}

struct Measure
{
    double cpuPercent = 0;
    double paintedFps = 0; // swaps that carried a new preview picture
    double swapsPerSecond = 0;
    bool ok = false;
};

// Reads what the process printed until the pattern shows or time runs out.
bool waitForOutput(QProcess &process, QByteArray &output, const QByteArray &pattern, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs && !output.contains(pattern)) {
        process.waitForReadyRead(100);
        output += process.readAll();
    }
    return output.contains(pattern);
}

struct Pair
{
    Measure app, player;
};

Pair runOnce(const QString &clip, const QString &backend, const QString &lens, int seconds)
{
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
    env.insert("GLINT_DEMO_CLIP", clip);
    env.insert("GLINT_PREVIEW_STATS", "1");
    if (backend != "auto")
        env.insert("GLINT_QUICK_BACKEND", backend);
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    QStringList args;
    if (!lens.isEmpty())
        args << "--lens" << QStringLiteral(GLINT_LENSES_DIR "/") + lens;
    app.start(GLINT_APP_BINARY, args);
    QByteArray output;
    Pair pair;
    if (!waitForOutput(app, output, "First frame shown", 60000)) {
        app.kill();
        app.waitForFinished(5000);
        return pair;
    }
    QThread::msleep(2000); // settle: lens loaded, face found
    output += app.readAll();
    const int from = output.size();

    QProcess player;
    player.setProcessChannelMode(QProcess::MergedChannels);
    player.start("ffplay", {"-loglevel", "quiet", "-an", "-loop", "0", "-x", "1280", "-y", "720", clip});
    player.waitForStarted();
    QThread::msleep(500);
    const double appStart = cpuSeconds(app.processId());
    const double playerStart = cpuSeconds(player.processId());
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < seconds * 1000) {
        app.waitForReadyRead(200);
        output += app.readAll();
    }
    const double wall = clock.elapsed() / 1000.0;
    pair.app.cpuPercent = 100 * (cpuSeconds(app.processId()) - appStart) / wall;
    pair.player.cpuPercent = 100 * (cpuSeconds(player.processId()) - playerStart) / wall;
    player.kill();
    player.waitForFinished(5000);

    // The mean of the per-second painted rates logged during the window.
    const QRegularExpression rate(
        QStringLiteral("Painted ([0-9.]+) frames per second \\(([0-9.]+) swaps\\)"));
    double painted = 0, swaps = 0;
    int count = 0;
    for (auto it = rate.globalMatch(QString::fromUtf8(output.mid(from))); it.hasNext();) {
        const auto match = it.next();
        painted += match.captured(1).toDouble();
        swaps += match.captured(2).toDouble();
        ++count;
    }
    pair.app.paintedFps = count ? painted / count : 0;
    pair.app.swapsPerSecond = count ? swaps / count : 0;
    pair.app.ok = count > 0;
    app.terminate();
    if (!app.waitForFinished(10000))
        app.kill();
    return pair;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? std::max(5, atoi(argv[1])) : 15;
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::printf("needs an X display: run under xvfb-run -a -s \"-screen 0 1920x1080x24\"\n");
        return 2;
    }
    std::printf("application preview vs ffplay on the same clip, %d s per run\n", seconds);
    std::printf("load average at start: %s\n", loadAverage().constData());
    std::printf("%-6s %-9s %-11s %10s %8s %9s %12s %8s\n", "source", "backend", "lens", "painted/s",
                "swaps/s", "app cpu%", "ffplay cpu%", "ratio");
    const struct
    {
        const char *name;
        const char *path;
    } clips[] = {{"30", GLINT_PREVIEW_CLIP_30}, {"120", GLINT_PREVIEW_CLIP_120}};
    for (const auto &clip : clips) {
        for (const QString backend : {"auto", "software", "opengl"}) {
            for (const QString lens : {"", "sunglasses"}) {
                const Pair p = runOnce(QString::fromUtf8(clip.path), backend, lens, seconds);
                if (!p.app.ok) {
                    std::printf("%-6s %-9s %-11s  no frames shown\n", clip.name, qPrintable(backend),
                                lens.isEmpty() ? "none" : qPrintable(lens));
                    continue;
                }
                std::printf("%-6s %-9s %-11s %10.1f %8.1f %9.0f %12.0f %8.2f\n", clip.name,
                            qPrintable(backend), lens.isEmpty() ? "none" : qPrintable(lens), p.app.paintedFps,
                            p.app.swapsPerSecond, p.app.cpuPercent, p.player.cpuPercent,
                            p.app.cpuPercent / std::max(1.0, p.player.cpuPercent));
                std::fflush(stdout);
            }
        }
    }
    std::printf("load average at end: %s\n", loadAverage().constData());
    return 0;
}
