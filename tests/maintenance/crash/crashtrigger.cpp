#include "crashtrigger.h"

#include <QDir>
#include <QHash>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcTrigger, "glint.test.crashtrigger")

namespace CrashTrigger {

namespace {

int threadCount()
{
    return int(QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size());
}

void announceFault()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int threads = threadCount();
    qCInfo(lcTrigger).noquote() << QStringLiteral("Crashing on purpose with %1 threads").arg(threads);
    std::printf("fault %d %lld\n", threads, static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
    std::fflush(stdout);
}

int *volatile g_null = nullptr;
volatile int g_zero = 0, g_one = 1, g_sink = 0;
volatile long g_depthLimit = 1L << 40;

__attribute__((noinline)) void dereferenceNull()
{
    *g_null = 42;
}

__attribute__((noinline)) void divideByZero()
{
    // Both operands unknown to the compiler: 1 / x alone becomes compares.
    g_sink = g_one / g_zero;
}

__attribute__((noinline)) long overflowStack(long depth)
{
    volatile char padding[512];
    padding[0] = char(depth);
    if (depth > g_depthLimit)
        return 0;
    return overflowStack(depth + 1) + padding[0];
}

__attribute__((noinline)) void throwUncaught()
{
    throw std::runtime_error("thrown on purpose and never caught");
}

// On a thread of its own nothing catches it, so terminate runs with the
// thrower still on the stack (through the event loop, Qt would catch and
// rethrow it from exec()).
void throwOnThread()
{
    std::thread thrower([] {
        announceFault();
        throwUncaught();
    });
    thrower.join();
}

__attribute__((noinline)) void abortOnPurpose()
{
    std::abort();
}

// Two threads fault at the same moment: one report, one exit.
__attribute__((noinline)) void crashTwice()
{
    static std::atomic<int> ready{0};
    std::thread second([] {
        ++ready;
        while (ready.load() < 2) {
        }
        dereferenceNull();
    });
    second.detach();
    ++ready;
    while (ready.load() < 2) {
    }
    dereferenceNull();
}

void startIdleThreads(int total)
{
    while (threadCount() < total) {
        std::thread([] {
            for (;;)
                ::pause();
        }).detach();
        // Let the thread show up in /proc before counting again.
        for (int i = 0; i < 100 && threadCount() < total; ++i)
            std::this_thread::yield();
    }
    std::printf("threads %d\n", threadCount());
    std::fflush(stdout);
}

void run(const QByteArray &command)
{
    const QList<QByteArray> words = command.trimmed().split(' ');
    const QByteArray &verb = words.first();
    if (verb == "threads" && words.size() == 2) {
        startIdleThreads(words[1].toInt());
        return;
    }
    if (verb == "exception")
        return throwOnThread();
    static const QHash<QByteArray, void (*)()> crashes{{"null", dereferenceNull},
                                                       {"abort", abortOnPurpose},
                                                       {"divide", divideByZero},
                                                       {"stack", [] { g_sink = int(overflowStack(0)); }},
                                                       {"double", crashTwice}};
    if (const auto crash = crashes.value(verb)) {
        announceFault();
        crash();
    }
}

} // namespace

void armFromEnvironment(QObject *parent)
{
    if (qgetenv("GLINT_CRASH_TRIGGER") != "stdin")
        return;
    auto *notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, parent);
    auto *pending = new QByteArray;
    QObject::connect(notifier, &QSocketNotifier::activated, parent, [notifier, pending] {
        char buffer[256];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            notifier->setEnabled(false);
            return;
        }
        pending->append(buffer, int(got));
        int end;
        while ((end = pending->indexOf('\n')) >= 0) {
            const QByteArray line = pending->left(end);
            pending->remove(0, end + 1);
            run(line);
        }
    });
    qCInfo(lcTrigger) << "Crash trigger armed";
}

} // namespace CrashTrigger
