// Crash report figures:
//  1. fault to upload: the real application (its crash-test build) with 20
//     threads crashes by a null dereference; a loopback HTTP receiver notes
//     when the report's first byte and its last byte arrive. Measured from
//     the moment the trigger announces the fault (CLOCK_REALTIME).
//  2. start-up cost: what the crash reporter adds to the application's
//     start on the main thread: installing the handlers, starting the
//     handler program and collecting the system report's GUI part. Each
//     sample is a fresh process (one handler per process).
#include "benchsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <crashreporter.h>
#include <cstdio>
#include <ctime>
#include <systemreport.h>

namespace {

qint64 realtimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return qint64(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void printStats(const char *what, const std::vector<double> &values)
{
    std::printf("%-40s %s\n", what, Bench::summary(values).c_str());
}

// A fresh home for one run of a program, drawing off-screen.
QProcessEnvironment environmentIn(const QTemporaryDir &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char *folder : {"CONFIG", "DATA", "CACHE"})
        env.insert(QStringLiteral("XDG_%1_HOME").arg(folder), home.filePath(QString(folder).toLower()));
    env.insert("QT_QPA_PLATFORM", "offscreen");
    // A runtime folder of its own keeps the single-instance lock apart.
    QDir().mkpath(home.filePath("runtime"));
    QFile::setPermissions(home.filePath("runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    env.insert("XDG_RUNTIME_DIR", home.filePath("runtime"));
    return env;
}

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

struct Arrival
{
    qint64 firstByteNs = 0;
    qint64 completeNs = 0;
};

// Accepts report uploads and notes their arrival times.
class Receiver : public QTcpServer
{
public:
    Receiver() { listen(QHostAddress::LocalHost, 0); }
    std::vector<Arrival> arrivals;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *socket = new QTcpSocket(this);
        socket->setSocketDescriptor(descriptor);
        auto buffer = std::make_shared<QByteArray>();
        auto arrival = std::make_shared<Arrival>();
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer, arrival] {
            if (buffer->isEmpty())
                arrival->firstByteNs = realtimeNs();
            buffer->append(socket->readAll());
            const int end = buffer->indexOf("\r\n\r\n");
            const auto match =
                QRegularExpression("content-length: *(\\d+)", QRegularExpression::CaseInsensitiveOption)
                    .match(QString::fromLatin1(buffer->left(end)));
            if (end < 0 || !match.hasMatch() || buffer->size() < end + 4 + match.captured(1).toInt())
                return;
            arrival->completeNs = realtimeNs();
            arrivals.push_back(*arrival);
            socket->write("HTTP/1.1 201 Created\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
        });
    }
};

void faultToUpload(int runs)
{
    Receiver receiver;
    std::vector<double> firstByte, complete, exited, dumped;
    int threadsSeen = 0;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir home;
        QProcess app;
        QProcessEnvironment env = environmentIn(home);
        env.insert("QT_QUICK_BACKEND", "software");
        env.insert("GLINT_CRASH_TRIGGER", "stdin");
        env.insert("GLINT_CRASH_URL", QStringLiteral("http://127.0.0.1:%1/crash").arg(receiver.serverPort()));
        app.setProcessEnvironment(env);
        app.start(QStringLiteral(GLINT_CRASH_APP), QStringList());
        const auto logHas = [&](const char *text) {
            QFile file(home.filePath("config/Glint/Glint Camera/Log.txt"));
            return file.open(QIODevice::ReadOnly) && file.readAll().contains(text);
        };
        QByteArray out;
        if (!waitUntil([&] { return logHas("System report ready"); }, 60000)) {
            std::printf("run %d: the application did not get ready\n", run);
            continue;
        }
        app.write("threads 20\n");
        waitUntil([&] { return (out += app.readAllStandardOutput()).contains("threads "); }, 10000);
        const size_t before = receiver.arrivals.size();
        app.write("null\n");
        waitUntil([&] { return (out += app.readAllStandardOutput()).contains("fault "); }, 10000);
        const auto fault = QRegularExpression("fault (\\d+) (\\d+)").match(QString::fromLatin1(out));
        waitUntil([&] { return app.state() == QProcess::NotRunning; }, 15000);
        const qint64 endNs = realtimeNs();
        if (!fault.hasMatch() || receiver.arrivals.size() != before + 1) {
            std::printf("run %d: no report arrived\n", run);
            continue;
        }
        threadsSeen = fault.captured(1).toInt();
        const qint64 faultNs = fault.captured(2).toLongLong();
        const Arrival &arrival = receiver.arrivals.back();
        firstByte.push_back((arrival.firstByteNs - faultNs) / 1e6);
        complete.push_back((arrival.completeNs - faultNs) / 1e6);
        exited.push_back((endNs - faultNs) / 1e6);
        const auto handler = QRegularExpression("dump of \\d+ threads in (\\d+) ms")
                                 .match(QString::fromLocal8Bit(app.readAllStandardError()));
        if (handler.hasMatch())
            dumped.push_back(handler.captured(1).toDouble());
    }
    std::printf("fault to upload, application with %d threads:\n", threadsSeen);
    printStats("  fault -> first byte of the upload", firstByte);
    printStats("  fault -> upload complete", complete);
    printStats("  fault -> process ended (exit code 1)", exited);
    printStats("  attach + unwind + symbolise (handler)", dumped);
}

// One sample, in a process of its own: what the reporter costs the main
// thread at start.
int startupOnce(int argc, char **argv)
{
    QElapsedTimer clock;
    clock.start();
    auto *reporter = new CrashReport::CrashReporter;
    const qint64 installNs = clock.nsecsElapsed();
    QCoreApplication::setOrganizationName("Glint");
    QCoreApplication::setApplicationName("Glint Camera Bench");
    QGuiApplication app(argc, argv);
    clock.restart();
    reporter->start(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) + "/Log.txt");
    const qint64 startNs = clock.nsecsElapsed();
    clock.restart();
    CrashReport::SystemReport report;
    QObject::connect(&report, &CrashReport::SystemReport::textChanged,
                     [&](const QString &text) { reporter->setDescription(text); });
    report.collect();
    const qint64 collectNs = clock.nsecsElapsed();
    std::printf("%lld %lld %lld\n", installNs / 1000, startNs / 1000, collectNs / 1000);
    std::fflush(stdout);
    delete reporter;
    return 0;
}

void startupCost(const QString &self, int runs)
{
    std::vector<double> install, start, collect, total;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir home;
        QProcess child;
        child.setProcessEnvironment(environmentIn(home));
        child.start(self, {"--startup-once"});
        child.waitForFinished(30000);
        const QList<QByteArray> values = child.readAllStandardOutput().trimmed().split(' ');
        if (values.size() != 3)
            continue;
        install.push_back(values[0].toDouble() / 1000);
        start.push_back(values[1].toDouble() / 1000);
        collect.push_back(values[2].toDouble() / 1000);
        total.push_back(install.back() + start.back() + collect.back());
    }
    std::printf("start-up cost on the main thread:\n");
    printStats("  install the handlers", install);
    printStats("  start the handler program", start);
    printStats("  system report (screens, cameras, OS)", collect);
    printStats("  total", total);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--startup-once")
        return startupOnce(argc, argv);
    QCoreApplication app(argc, argv);
    const int runs = qEnvironmentVariableIsSet("BENCH_RUNS") ? qEnvironmentVariableIntValue("BENCH_RUNS") : 5;
    std::printf("crash reports (load %s)\n", Bench::loadAverage().constData());
    startupCost(QCoreApplication::applicationFilePath(), runs * 4);
    faultToUpload(runs);
    return 0;
}
