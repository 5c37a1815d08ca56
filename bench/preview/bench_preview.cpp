// The application as the user sees it, run on the current X display (run it
// under xvfb-run -a -s "-screen 0 1920x1080x24"). Three measures:
//
//   bench_preview [seconds per run (default 15)]
//     The preview showing a 30 fps and a 120 fps clip as its demo camera, on
//     each Qt Quick backend (the automatic choice first), with no lens and
//     with sunglasses: preview pictures per second the window really put on
//     screen (its scene graph's frame swaps that carried a new picture, which
//     the application logs with GLINT_PREVIEW_STATS=1, beside all swaps) and
//     the application's CPU from /proc, next to ffplay's CPU showing the same
//     clip in the same run.
//   bench_preview --startup [runs (default 3)]
//     Start to first frame: what the application logs next to what is seen
//     from outside, counted from starting the process to the log line and to
//     the first camera picture on the screen.
//   bench_preview --memory [minutes (default 10)]
//     Resident memory of the application showing the demo camera with
//     sunglasses, every 10 s, and its drift after a minute of warm-up.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRect>
#include <QRegularExpression>
#include <QThread>
#include <benchsupport.h>
#include <cstdio>
#include <cstdlib>
#include <xcb/xcb.h>

namespace {

struct Measure
{
    double cpuPercent = 0;
    double paintedFps = 0; // swaps that carried a new preview picture
    double swapsPerSecond = 0;
    bool ok = false;
};

struct Pair
{
    Measure app, player;
};

Pair runOnce(const QString &clip, const QString &backend, const QString &lens, int seconds)
{
    QStringList env{"GLINT_PREVIEW_STATS=1"};
    if (backend != "auto")
        env << "GLINT_QUICK_BACKEND=" + backend;
    Bench::AppRun app(clip, lens, env);
    Pair pair;
    if (!app.waitForLog("First frame shown", 60000))
        return pair;
    QThread::msleep(2000); // settle: lens loaded, face found
    const int from = app.log().size();

    QProcess player;
    player.setProcessChannelMode(QProcess::MergedChannels);
    player.start("ffplay", {"-loglevel", "quiet", "-an", "-loop", "0", "-x", "1280", "-y", "720", clip});
    player.waitForStarted();
    QThread::msleep(500);
    const double appStart = Bench::cpuSeconds(app.pid());
    const double playerStart = Bench::cpuSeconds(player.processId());
    QElapsedTimer clock;
    clock.start();
    app.waitForLog("no such line", seconds * 1000);
    const double wall = clock.elapsed() / 1000.0;
    pair.app.cpuPercent = 100 * (Bench::cpuSeconds(app.pid()) - appStart) / wall;
    pair.player.cpuPercent = 100 * (Bench::cpuSeconds(player.processId()) - playerStart) / wall;
    player.kill();
    player.waitForFinished(5000);

    // The mean of the per-second painted rates logged during the window.
    const QRegularExpression rate(
        QStringLiteral("Painted ([0-9.]+) frames per second \\(([0-9.]+) swaps\\)"));
    double painted = 0, swaps = 0;
    int count = 0;
    for (auto it = rate.globalMatch(QString::fromUtf8(app.log().mid(from))); it.hasNext();) {
        const auto match = it.next();
        painted += match.captured(1).toDouble();
        swaps += match.captured(2).toDouble();
        ++count;
    }
    pair.app.paintedFps = count ? painted / count : 0;
    pair.app.swapsPerSecond = count ? swaps / count : 0;
    pair.app.ok = count > 0;
    return pair;
}

int previewRates(int seconds)
{
    std::printf("application preview vs ffplay on the same clip, %d s per run\n", seconds);
    std::printf("load average at start: %s\n", Bench::loadAverage().constData());
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
                const QByteArray lensName = lens.isEmpty() ? QByteArray("none") : lens.toUtf8();
                if (!p.app.ok) {
                    std::printf("%-6s %-9s %-11s  no frames shown\n", clip.name, qPrintable(backend),
                                lensName.constData());
                    continue;
                }
                std::printf("%-6s %-9s %-11s %10.1f %8.1f %9.0f %12.0f %8.2f\n", clip.name,
                            qPrintable(backend), lensName.constData(), p.app.paintedFps, p.app.swapsPerSecond,
                            p.app.cpuPercent, p.player.cpuPercent,
                            p.app.cpuPercent / std::max(1.0, p.player.cpuPercent));
                std::fflush(stdout);
            }
        }
    }
    std::printf("load average at end: %s\n", Bench::loadAverage().constData());
    return 0;
}

// The mapped top-level window that covers the most of the screen.
QRect largestWindow(xcb_connection_t *x, xcb_window_t root)
{
    QRect largest;
    xcb_query_tree_reply_t *tree = xcb_query_tree_reply(x, xcb_query_tree(x, root), nullptr);
    if (!tree)
        return largest;
    const xcb_window_t *children = xcb_query_tree_children(tree);
    for (int i = 0; i < xcb_query_tree_children_length(tree); ++i) {
        auto *attributes =
            xcb_get_window_attributes_reply(x, xcb_get_window_attributes(x, children[i]), nullptr);
        const bool viewable = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        free(attributes);
        auto *geometry =
            viewable ? xcb_get_geometry_reply(x, xcb_get_geometry(x, children[i]), nullptr) : nullptr;
        if (geometry && geometry->width * geometry->height > largest.width() * largest.height())
            largest = QRect(geometry->x, geometry->y, geometry->width, geometry->height);
        free(geometry);
    }
    free(tree);
    return largest;
}

// Mean brightness (0-255) of an area of the screen.
double brightness(xcb_connection_t *x, xcb_window_t root, const QRect &area)
{
    auto *image = xcb_get_image_reply(x,
                                      xcb_get_image(x, XCB_IMAGE_FORMAT_Z_PIXMAP, root, int16_t(area.x()),
                                                    int16_t(area.y()), uint16_t(area.width()),
                                                    uint16_t(area.height()), ~0u),
                                      nullptr);
    if (!image)
        return 0;
    const uint8_t *pixels = xcb_get_image_data(image);
    const int length = xcb_get_image_data_length(image);
    double sum = 0;
    for (int i = 0; i + 3 < length; i += 4) // blue, green, red, padding
        sum += 0.114 * pixels[i] + 0.587 * pixels[i + 1] + 0.299 * pixels[i + 2];
    free(image);
    return length >= 4 ? sum / (length / 4) : 0;
}

int startup(int runs)
{
    int screenNumber = 0;
    xcb_connection_t *x = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(x)) {
        std::printf("cannot reach the X display\n");
        return 2;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
    std::printf("start to first frame with sunglasses: logged by the application, and seen from outside\n"
                "(from starting the process to the log line, and to the camera picture on the screen)\n");
    std::printf("load average at start: %s\n", Bench::loadAverage().constData());
    std::printf("%4s %10s %10s %10s %12s\n", "run", "logged ms", "log ms", "screen ms", "logged-screen");
    QRegularExpression logged(QStringLiteral("First frame shown (\\d+) ms after start"));
    for (int run = 1; run <= runs; ++run) {
        Bench::AppRun app(GLINT_PREVIEW_CLIP_30, "sunglasses");
        qint64 screenMs = -1, logMs = -1;
        // Until the camera's first picture, the preview (left of the lens
        // list, below the title) is dark; the demo camera's picture is bright.
        while (app.elapsedMs() < 60000 && (screenMs < 0 || logMs < 0)) {
            const QRect window = largestWindow(x, root);
            const QRect strip(window.x() + window.width() * 12 / 100, window.y() + window.height() * 22 / 100,
                              window.width() * 48 / 100, 4);
            if (screenMs < 0 && !window.isEmpty() && brightness(x, root, strip) > 80)
                screenMs = app.elapsedMs();
            if (logMs < 0 && app.waitForLog("First frame shown", 5))
                logMs = app.elapsedMs();
        }
        const auto match = logged.match(QString::fromUtf8(app.log()));
        const qint64 loggedMs = match.hasMatch() ? match.captured(1).toLongLong() : -1;
        std::printf("%4d %10lld %10lld %10lld %12lld\n", run, loggedMs, logMs, screenMs,
                    loggedMs >= 0 && screenMs >= 0 ? loggedMs - screenMs : 0);
        std::fflush(stdout);
    }
    std::printf("load average at end: %s\n", Bench::loadAverage().constData());
    xcb_disconnect(x);
    return 0;
}

int memory(int minutes)
{
    constexpr int kWarmUpSeconds = 60, kEverySeconds = 10;
    std::printf("resident memory of the application with sunglasses on the demo camera, %d min\n", minutes);
    std::printf("load average at start: %s\n", Bench::loadAverage().constData());
    Bench::AppRun app(GLINT_PREVIEW_CLIP_30, "sunglasses");
    if (!app.waitForLog("First frame shown", 60000)) {
        std::printf("no frame shown\n");
        return 1;
    }
    QElapsedTimer clock;
    clock.start();
    qint64 warm = -1, low = 0, high = 0, last = 0;
    for (int second = 0; second <= minutes * 60; second += kEverySeconds) {
        app.waitForLog("no such line", int(second * 1000 - clock.elapsed()));
        last = Bench::residentKb(app.pid());
        if (last == 0) {
            std::printf("the application ended\n");
            return 1;
        }
        if (second == kWarmUpSeconds)
            warm = low = high = last;
        low = std::min(low, last), high = std::max(high, last);
        std::printf("%5d s %9.1f MB\n", second, last / 1024.0);
        std::fflush(stdout);
    }
    if (warm > 0)
        std::printf("after %d s of warm-up: drift %+.2f MB, range %.2f MB\n", kWarmUpSeconds,
                    (last - warm) / 1024.0, (high - low) / 1024.0);
    std::printf("load average at end: %s\n", Bench::loadAverage().constData());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::printf("needs an X display: run under xvfb-run -a -s \"-screen 0 1920x1080x24\"\n");
        return 2;
    }
    const QStringList args = application.arguments();
    const QString mode = args.value(1);
    const int count = std::atoi(qPrintable(args.value(mode.startsWith("--") ? 2 : 1)));
    if (mode == "--startup")
        return startup(count > 0 ? count : 3);
    if (mode == "--memory")
        return memory(count > 0 ? count : 10);
    if (mode.startsWith("--")) {
        std::printf("usage: %s [seconds] | --startup [runs] | --memory [minutes]\n", argv[0]);
        return 2;
    }
    return previewRates(std::max(5, count > 0 ? count : 15));
}
