// What usage analytics costs the program: the analytics middleware's time
// per action on the dispatcher's thread (with statistics on and off), the
// building of a 1,000-event upload, and the queue file at its largest.
// Prints medians; the goal for the middleware is under 5 microseconds.
#include "benchsupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <actiontypes.h>
#include <algorithm>
#include <analyticsmiddleware.h>
#include <analyticsqueuefile.h>
#include <analyticsservice.h>
#include <chrono>
#include <cstdio>
#include <lenscommand.h>
#include <metatypes.h>
#include <networkmanager.h>
#include <vector>

using namespace VCam;
using Clock = std::chrono::steady_clock;

namespace {

// Runs work(i) `runs` times and prints the times of the single runs.
template <typename Work> void measure(const char *what, int runs, Work work)
{
    std::vector<double> us;
    us.reserve(runs);
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        work(i);
        us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::printf("%-40s %s\n", what, Bench::summary(us, "us").c_str());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    registerMetaTypes();
    QTemporaryDir folder;
    // Uploads go to a closed loopback port; nothing here waits for them.
    qputenv("GLINT_ANALYTICS_URL", "http://127.0.0.1:9/analytics");
    NetworkManager network(QStringLiteral("http://127.0.0.1:9/vc/v1"),
                           [] { return QStringLiteral("bench"); });
    auto service =
        std::make_shared<AnalyticsService>(&network, folder.path(), QStringLiteral("bench-installation"));
    AnalyticsMiddleware middleware(service);
    middleware.start();

    LensCommand command;
    command.lensId = QStringLiteral("film-noir");
    command.context = LensActionContext::LensExplorer;
    const auto frame = std::make_shared<Bureau::Action>(int(ActionType::UpdateFrame));
    const auto activation =
        std::make_shared<Bureau::Action>(int(ActionType::SetActiveLensId), QVariant::fromValue(command));
    const auto settings = std::make_shared<Bureau::Action>(int(ActionType::OpenSettingsPage));
    const int runs = 200000;

    std::printf("Analytics middleware, %d actions each (dispatcher thread)\n", runs);
    measure("action without an event (UpdateFrame)", runs, [&](int) { middleware.process(frame); });
    measure("lens event (SetActiveLensId)", runs, [&](int) { middleware.process(activation); });
    measure("user event (OpenSettingsPage)", runs, [&](int) { middleware.process(settings); });
    service->setEnabled(false);
    measure("lens event, statistics switched off", runs, [&](int) { middleware.process(activation); });
    service->setEnabled(true);

    std::vector<AnalyticsService::Event> events;
    for (int i = 0; i < 1000; ++i) {
        AnalyticsService::Event event;
        auto *lens = event.mutable_lens_action();
        auto *base = lens->mutable_glintcamera_event_base();
        base->set_app_session_id("2f1c7d4e-8a8b-4a61-9a43-0f6f5b7d2c11");
        base->set_installation_id("5d2a4f0c9e1b7a3d5d2a4f0c9e1b7a3d");
        base->set_client_ts(1763860000000LL + i);
        base->set_lens_id("film-noir");
        base->set_app_type(com::parlo::analytics::gale::GLINTCAMERA);
        lens->set_glint_camera_lens_events(com::parlo::analytics::gale::LENS_ACTIVATION);
        lens->set_glint_camera_lens_source(com::parlo::analytics::gale::LENS_EXPLORER);
        lens->set_num_lens_in_favorites(7);
        events.push_back(event);
    }
    QByteArray body = AnalyticsService::serializeBatch(events, 1763860000000LL);
    std::printf("\nBatch of 1,000 lens events: %d bytes\n", int(body.size()));
    measure("serialise the batch", 300,
            [&](int) { body = AnalyticsService::serializeBatch(events, 1763860000000LL); });

    std::vector<AnalyticsService::Event> full;
    for (int i = 0; i < 10; ++i)
        full.insert(full.end(), events.begin(), events.end());
    const QString path = folder.filePath(QStringLiteral("analytics.proto.bin"));
    std::printf("\nQueue file at its limit (%d events)\n", int(full.size()));
    measure("write", 20, [&](int) { AnalyticsQueueFile::store(path, full); });
    measure("read", 20, [&](int) {
        std::vector<AnalyticsService::Event> loaded;
        AnalyticsQueueFile::load(path, loaded, AnalyticsService::kMaxPendingEvents);
    });
    return 0;
}
