// External events as the application receives them: the listener with its
// default limits inside the external events store, the dispatcher on the
// main thread, and the camera store with the real processing service on the
// demo camera running the sample lens that reacts to events. An event counts
// as arrived when the camera store hands it to the processing thread, where
// the lens takes it before its next frame.
//
// 1. Throughput: 4 clients on threads of their own, each sending events
//    back to back as newline-delimited JSON over one connection.
// 2. Latency: one client sends one event, and the time until it reaches
//    the stores is taken; repeated, with a pause between, percentiles
//    printed.
// Resident memory, and the frame rate with and without the flood, are
// printed too.
#include "benchsupport.h"

#include <QGuiApplication>
#include <QTcpServer>
#include <QThread>
#include <action.h>
#include <actionprovider.h>
#include <actiontypes.h>
#include <arpa/inet.h>
#include <atomic>
#include <cameralist.h>
#include <coreservice.h>
#include <corestore.h>
#include <cstdio>
#include <dispatcher.h>
#include <externalevent.h>
#include <externaleventslistener.h>
#include <externaleventsstore.h>
#include <lenscommand.h>
#include <metatypes.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace VCam;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kClients = 4;
std::atomic<long> g_received{0};
std::atomic<long long> g_lastArrivalNs{0};

long residentKiB()
{
    return long(Bench::residentKb(QCoreApplication::applicationPid()));
}

void waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done() && Clock::now() < deadline)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// A client of the listener without Nagle's delay, as event senders are.
struct Client
{
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    explicit Client(quint16 port)
    {
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            ::close(fd);
            fd = -1;
        }
    }
    ~Client() { ::close(fd); }
    bool send(const std::string &bytes) const
    {
        for (size_t sent = 0; fd >= 0 && sent < bytes.size();) {
            const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            sent += size_t(n);
        }
        return fd >= 0;
    }
};

// kClients clients on threads of their own, each sending `ticks` batches
// of `perTick` events, one batch every `spacing` (0: back to back), while
// the main thread runs the event loop until every event has arrived.
// Returns the seconds until the last one arrived and the frames meanwhile.
std::pair<double, long> flood(quint16 port, int ticks, int perTick, std::chrono::milliseconds spacing,
                              std::atomic<long> &frames, std::atomic<int> &failures)
{
    std::string batch;
    for (int i = 0; i < perTick; ++i)
        batch += "{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}\n";
    const long expected = g_received + long(kClients) * ticks * perTick;
    frames = 0;
    const auto start = Clock::now();
    std::thread senders([&] {
        Bench::inParallel(kClients, [&](int) {
            Client client(port);
            for (int tick = 0; tick < ticks; ++tick) {
                std::this_thread::sleep_until(start + spacing * tick);
                if (!client.send(batch)) {
                    ++failures;
                    break;
                }
            }
        });
    });
    waitUntil([&] { return g_received >= expected; }, 120000);
    const double seconds = std::chrono::duration<double>(std::chrono::nanoseconds(g_lastArrivalNs.load()) -
                                                         start.time_since_epoch())
                               .count();
    const long framesSeen = frames;
    senders.join();
    return {seconds, framesSeen};
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    registerMetaTypes();
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();

    auto dispatcher = std::make_shared<Bureau::Dispatcher>();
    auto provider = std::make_shared<ActionProvider>(dispatcher);
    auto service = new CoreService();
    auto core = std::make_shared<CoreStore>(dispatcher, service);
    auto store = std::make_shared<ExternalEventsStore>(provider, new ExternalEventsListener(port, {}));
    dispatcher->addStore(core);
    dispatcher->addStore(store);
    QObject::connect(
        service, &CoreService::proccessExternalEvent, service,
        [](const ExternalEvent &) {
            g_lastArrivalNs =
                std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
            ++g_received;
        },
        Qt::DirectConnection);
    std::atomic<long> frames{0};
    QObject::connect(core.get(), &CoreStore::frameReady, core.get(), [&frames] { ++frames; });
    dispatcher->start();
    waitUntil([&] { return dispatcher->state() == Bureau::Dispatcher::Started; }, 20000);
    provider->notifyStarted();
    provider->setCamera(CameraList::demoCameraName());
    LensCommand lens;
    lens.lensId = "stream-cheers";
    lens.text = QStringLiteral(GLINT_LENSES_DIR "/stream-cheers");
    dispatcher->dispatch(
        new Bureau::Action(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(lens)));
    waitUntil([&] { return core->isTriggerAvailable() && store->listener()->isListening(); }, 30000);
    if (!store->listener()->isListening() || !core->isTriggerAvailable()) {
        std::fprintf(stderr, "listener or lens did not start\n");
        return 1;
    }
    std::printf("load average %s\n", Bench::loadAverage().constData());
    // Frame rate at rest.
    waitUntil([] { return false; }, 2000);
    frames = 0;
    const auto restStart = Clock::now();
    waitUntil([] { return false; }, 3000);
    const double restFps = frames * 1000.0 / Bench::msSince(restStart);

    // Throughput: 4 clients sending 50,000 events each back to back.
    std::atomic<int> failures{0};
    const long memoryBefore = residentKiB();
    const long before = g_received;
    const auto [seconds, floodFrames] = flood(port, 500, 100, {}, frames, failures);
    std::printf(
        "throughput: %ld of %d events from %d clients in %.3f s = %.0f events/s (client failures %d); "
        "%.1f frames per second meanwhile, %.1f at rest\n",
        g_received - before, kClients * 50000, kClients, seconds, (g_received - before) / seconds,
        failures.load(), floodFrames / seconds, restFps);

    // The goal rate, 10,000 events/s from 4 clients for 10 s: memory before
    // and after, and the frame rate meanwhile.
    const long memoryPacedBefore = residentKiB();
    const long pacedBefore = g_received;
    const auto [pacedSeconds, pacedFrames] =
        flood(port, 1000, 25, std::chrono::milliseconds(10), frames, failures);
    std::printf("paced: %ld of 100000 events in %.2f s (10000 events/s offered); %.1f frames per second; "
                "memory %ld KiB before, %ld KiB after\n",
                g_received - pacedBefore, pacedSeconds, pacedFrames / pacedSeconds, memoryPacedBefore,
                residentKiB());

    // Latency: one event at a time, from the send to the stores.
    Client client(port);
    std::vector<double> latencies;
    for (int i = 0; i < 500 && client.fd >= 0; ++i) {
        const long received = g_received;
        const auto sent = Clock::now();
        client.send("{\"type\":\"trigger1\"}\n");
        while (g_received == received && Clock::now() - sent < std::chrono::seconds(2))
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        latencies.push_back(std::chrono::duration<double, std::milli>(
                                std::chrono::nanoseconds(g_lastArrivalNs.load()) - sent.time_since_epoch())
                                .count());
        QThread::msleep(2);
        QCoreApplication::processEvents();
    }
    std::printf("latency send -> handed to the lens's thread: %s\n", Bench::summary(latencies).c_str());
    std::printf("resident memory: %ld KiB before, %ld KiB at end\n", memoryBefore, residentKiB());
    dispatcher->stop();
    waitUntil([] { return false; }, 200);
    return 0;
}
