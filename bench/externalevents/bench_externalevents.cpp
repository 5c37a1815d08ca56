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
#include <QFile>
#include <QGuiApplication>
#include <QTcpServer>
#include <QThread>
#include <QTimer>
#include <action.h>
#include <actionprovider.h>
#include <actiontypes.h>
#include <arpa/inet.h>
#include <atomic>
#include <cameralist.h>
#include <chrono>
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
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace VCam;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kClients = 4;
constexpr int kEventsPerClient = 50000;
constexpr int kLatencySamples = 500;

std::atomic<long> g_received{0};
std::atomic<long long> g_lastArrivalNs{0};

long residentKiB()
{
    QFile status("/proc/self/status");
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return 0;
}

int connectTo(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    const int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}

bool sendAll(int fd, const std::string &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += size_t(n);
    }
    return true;
}

void waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done() && Clock::now() < deadline)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
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
    bool started = false;
    QObject::connect(dispatcher.get(), &Bureau::Dispatcher::started, [&started] { started = true; });
    dispatcher->start();
    waitUntil([&] { return started || dispatcher->state() == Bureau::Dispatcher::Started; }, 20000);
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
    // Frame rate at rest.
    waitUntil([] { return false; }, 2000);
    frames = 0;
    auto restStart = Clock::now();
    waitUntil([] { return false; }, 3000);
    const double restFps = frames / std::chrono::duration<double>(Clock::now() - restStart).count();

    const long memoryBefore = residentKiB();
    // Throughput.
    const std::string event = "{\"type\":\"donate\",\"data\":{\"user_name\":\"ann\",\"amount\":100}}\n";
    std::vector<std::thread> clients;
    std::atomic<int> failures{0};
    frames = 0;
    const auto start = Clock::now();
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([&] {
            const int fd = connectTo(port);
            if (fd < 0) {
                ++failures;
                return;
            }
            std::string batch;
            for (int i = 0; i < 100; ++i)
                batch += event;
            for (int i = 0; i < kEventsPerClient / 100; ++i)
                if (!sendAll(fd, batch)) {
                    ++failures;
                    break;
                }
            ::close(fd);
        });
    }
    const long expected = long(kClients) * kEventsPerClient;
    waitUntil([&] { return g_received >= expected; }, 120000);
    const double seconds = std::chrono::duration<double>(std::chrono::nanoseconds(g_lastArrivalNs.load()) -
                                                         start.time_since_epoch())
                               .count();
    const double floodFps = frames / std::chrono::duration<double>(Clock::now() - start).count();
    for (auto &client : clients)
        client.join();
    const long memoryAfterThroughput = residentKiB();
    std::printf(
        "throughput: %ld of %ld events from %d clients in %.3f s = %.0f events/s (client failures %d)\n",
        g_received.load(), expected, kClients, seconds, g_received / seconds, failures.load());

    // The goal rate, 10,000 events/s from 4 clients for 10 s: memory before
    // and after, and the frame rate meanwhile.
    {
        const long memoryPacedBefore = residentKiB();
        const long receivedBefore = g_received;
        constexpr int kPacedSeconds = 10;
        constexpr int kPerClientPerTick = 25; // every 10 ms: 2,500 events/s per client
        std::vector<std::thread> paced;
        frames = 0;
        const auto pacedStart = Clock::now();
        for (int c = 0; c < kClients; ++c) {
            paced.emplace_back([&] {
                const int fd = connectTo(port);
                if (fd < 0) {
                    ++failures;
                    return;
                }
                std::string batch;
                for (int i = 0; i < kPerClientPerTick; ++i)
                    batch += event;
                for (int tick = 0; tick < kPacedSeconds * 100; ++tick) {
                    std::this_thread::sleep_until(pacedStart + std::chrono::milliseconds(10 * tick));
                    if (!sendAll(fd, batch)) {
                        ++failures;
                        break;
                    }
                }
                ::close(fd);
            });
        }
        const long pacedExpected = long(kClients) * kPerClientPerTick * kPacedSeconds * 100;
        waitUntil([&] { return g_received - receivedBefore >= pacedExpected; }, (kPacedSeconds + 30) * 1000);
        const double pacedSeconds = std::chrono::duration<double>(Clock::now() - pacedStart).count();
        for (auto &client : paced)
            client.join();
        std::printf("paced: %ld of %ld events in %.2f s (%.0f events/s offered); %.1f frames per second; "
                    "memory %ld KiB before, %ld KiB after\n",
                    g_received - receivedBefore, pacedExpected, pacedSeconds,
                    pacedExpected / double(kPacedSeconds), frames / pacedSeconds, memoryPacedBefore,
                    residentKiB());
    }

    // Latency: send to the stores.
    const int fd = connectTo(port);
    std::vector<double> latencies;
    for (int i = 0; i < kLatencySamples && fd >= 0; ++i) {
        const long before = g_received;
        const auto sent = Clock::now();
        sendAll(fd, "{\"type\":\"trigger1\"}\n");
        while (g_received == before && Clock::now() - sent < std::chrono::seconds(2))
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        latencies.push_back(std::chrono::duration<double, std::milli>(
                                std::chrono::nanoseconds(g_lastArrivalNs.load()) - sent.time_since_epoch())
                                .count());
        QThread::msleep(2);
        QCoreApplication::processEvents();
    }
    if (fd >= 0)
        ::close(fd);
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) {
        return latencies.empty() ? 0.0 : latencies[size_t(q * (latencies.size() - 1))];
    };
    std::printf("frames: %.1f per second at rest, %.1f during the flood\n", restFps, floodFps);
    std::printf("latency send -> handed to the lens's thread over %zu events: median %.3f ms, p95 %.3f ms, "
                "p99 %.3f ms, max %.3f ms\n",
                latencies.size(), at(0.5), at(0.95), at(0.99), at(1.0));
    std::printf("resident memory: %ld KiB before, %ld KiB after throughput, %ld KiB at end\n", memoryBefore,
                memoryAfterThroughput, residentKiB());

    dispatcher->stop();
    waitUntil([] { return false; }, 200);
    return 0;
}
