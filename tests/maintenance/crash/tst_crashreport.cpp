// Crashes the real application (built with the test-only trigger) and
// checks what the real lens server receives: one multipart report with the
// log, the system report, the user id and a dump that names the crashing
// function and has every thread; exit code 1 within 10 seconds. Also a
// double crash, a missing or killed handler program, and what the next
// start says.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <csignal>
#include <lensserverprocess.h>
#include <xwindowdriver.h>

using XWindowDriver::waitFor;

namespace {

const QString kApp = QStringLiteral(GLINT_CRASH_APP);
// Where the handler program notes a run that ended without a goodbye.
const QString kCrashState = QStringLiteral("/data/Glint/Glint Camera/crashes/crash-state");

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// waitForFinished() is false for a process that has already ended.
bool ended(QProcess &process, int timeoutMs)
{
    return process.state() == QProcess::NotRunning || process.waitForFinished(timeoutMs);
}

// One run of the application in a home folder of its own.
class AppRun
{
public:
    AppRun(const QString &home, const QString &program, const QString &crashUrl, const QString &backendUrl)
        : m_home(home)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home + "/config");
        env.insert("XDG_DATA_HOME", home + "/data");
        env.insert("XDG_CACHE_HOME", home + "/cache");
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("QT_QUICK_BACKEND", "software"); // no OpenGL window surface offscreen
        env.insert("GLINT_CRASH_URL", crashUrl);
        env.insert("GLINT_BACKEND_URL", backendUrl);
        env.insert("GLINT_CRASH_TRIGGER", "stdin");
        env.remove("GLINT_CRASH_HANDLER");
        process.setProcessEnvironment(env);
        process.setProgram(program);
        process.setProcessChannelMode(QProcess::SeparateChannels);
    }
    ~AppRun()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    void setEnvironment(const QString &name, const QString &value)
    {
        QProcessEnvironment env = process.processEnvironment();
        env.insert(name, value);
        process.setProcessEnvironment(env);
    }

    QString logPath() const { return m_home + "/config/Glint/Glint Camera/Log.txt"; }
    QString log() const { return QString::fromUtf8(readFile(logPath())); }

    // Started, with the system report complete (OpenGL details included).
    bool start()
    {
        // The previous run's log must not count as this run's readiness.
        QFile::remove(logPath());
        process.start();
        return process.waitForStarted(10000) &&
               waitFor([&] { return log().contains("System report ready"); }, 60000);
    }

    // Sends a trigger command; returns the thread count it announced.
    int crash(const QByteArray &kind)
    {
        process.write(kind + "\n");
        int threads = -1;
        waitFor(
            [&] {
                m_out += process.readAllStandardOutput();
                const auto match = QRegularExpression("fault (\\d+) ").match(QString::fromLatin1(m_out));
                if (match.hasMatch())
                    threads = match.captured(1).toInt();
                return match.hasMatch() || process.state() == QProcess::NotRunning;
            },
            10000);
        return threads;
    }

    // The helper program's pid: the child of the application named after it.
    qint64 handlerProgramPid() const
    {
        const QStringList entries = QDir("/proc").entryList(QDir::Dirs);
        for (const QString &entry : entries) {
            const QByteArray stat = readFile("/proc/" + entry + "/stat");
            const int close = stat.lastIndexOf(')');
            if (close < 0 || !stat.contains("(glint-crash-han"))
                continue;
            const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
            if (fields.value(1).toLongLong() == process.processId())
                return entry.toLongLong();
        }
        return 0;
    }

    QProcess process;

private:
    QString m_home;
    QByteArray m_out;
};

struct StoredPart
{
    QString filename;
    QString contentType;
};

} // namespace

class TestCrashReport : public QObject
{
    Q_OBJECT
    LensServerProcess server;
    QTemporaryDir dir;
    QString program;
    int homes = 0;

    QString crashUrl() const { return QStringLiteral("http://127.0.0.1:%1/crash").arg(server.port()); }

    QString newHome() { return dir.filePath(QStringLiteral("home%1").arg(++homes)); }

    QByteArray serverCommand(const QStringList &arguments)
    {
        QProcess command;
        command.start(LensServerProcess::serverPath(),
                      QStringList{"crashes"} + arguments + QStringList{"--data-dir", server.dataDir()});
        command.waitForFinished(20000);
        return command.readAllStandardOutput();
    }

    QJsonArray storedReports() { return QJsonDocument::fromJson(serverCommand({"json"})).array(); }

    // Crashes a fresh run; checks the exit and that exactly one report
    // arrived. Returns that report (empty when the checks failed).
    QJsonObject crashOnce(AppRun &app, const QByteArray &kind, int *threads)
    {
        const int before = storedReports().size();
        QElapsedTimer clock;
        clock.start();
        *threads = app.crash(kind);
        if (!ended(app.process, 10000)) {
            qWarning() << "the application did not end within 10 s";
            return {};
        }
        const qint64 elapsed = clock.elapsed();
        if (app.process.exitStatus() != QProcess::NormalExit || app.process.exitCode() != 1) {
            qWarning() << "exit" << app.process.exitStatus() << app.process.exitCode()
                       << app.process.readAllStandardError().right(3000);
            return {};
        }
        qInfo().noquote()
            << QStringLiteral("%1: ended with code 1 after %2 ms").arg(QString(kind)).arg(elapsed);
        const QJsonArray after = storedReports();
        if (after.size() != before + 1) {
            qWarning() << "reports before" << before << "after" << after.size();
            return {};
        }
        return after.first().toObject(); // newest first
    }

    QByteArray part(const QJsonObject &report, const QString &name)
    {
        return serverCommand({"part", QString::number(report["id"].toInt()), name});
    }

    // The frames of the crashed thread's section of a dump.
    static QString crashedThread(const QString &dump)
    {
        const int start = dump.indexOf(QRegularExpression("\nthread \\d+ \"[^\"]*\" crashed:\n"));
        if (start < 0)
            return {};
        const int end = dump.indexOf("\n\n", start + 1);
        return dump.mid(start, end - start);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(server.isReady());
        QVERIFY(server.start());
        // A name of this test's own: one instance runs per program name.
        program = dir.filePath(
            QStringLiteral("glint-camera-crash-test-%1").arg(QCoreApplication::applicationPid()));
        QVERIFY(QFile::link(kApp, program));
    }

    void crashIsReported_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QString>("signal");
        QTest::addColumn<QString>("function");
        QTest::addColumn<bool>("topFrame"); // the function is frame #0
        QTest::newRow("null dereference") << QByteArray("null") << "SIGSEGV"
                                          << "dereferenceNull()" << true;
        QTest::newRow("abort") << QByteArray("abort") << "SIGABRT"
                               << "abortOnPurpose()" << false;
        QTest::newRow("uncaught exception") << QByteArray("exception") << "SIGABRT"
                                            << "throwUncaught()" << false;
        QTest::newRow("division by zero") << QByteArray("divide") << "SIGFPE"
                                          << "divideByZero()" << true;
        QTest::newRow("stack overflow") << QByteArray("stack") << "SIGSEGV"
                                        << "overflowStack(long)" << true;
    }

    void crashIsReported()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QString, signal);
        QFETCH(QString, function);
        QFETCH(bool, topFrame);

        AppRun app(newHome(), program, crashUrl(), server.baseUrl());
        QVERIFY2(app.start(), qPrintable(app.log().right(2000)));
        int threads = 0;
        const QJsonObject report = crashOnce(app, kind, &threads);
        QVERIFY(!report.isEmpty());
        QVERIFY(threads > 3);

        // Four parts with their file names and content types.
        QMap<QString, StoredPart> parts;
        for (const QJsonValue &value : report["parts"].toArray()) {
            const QJsonObject p = value.toObject();
            parts[p["name"].toString()] = {p["filename"].toString(), p["content_type"].toString()};
        }
        QCOMPARE(parts.keys(), (QStringList{"attachment0", "description", "log", "userID"}));
        QCOMPARE(parts["log"].filename, QString("log.txt"));
        QCOMPARE(parts["log"].contentType, QString("text/plain"));
        QCOMPARE(parts["description"].filename, QString("description.txt"));
        QCOMPARE(parts["attachment0"].filename, QString("dump.dmp"));
        QCOMPARE(parts["attachment0"].contentType, QString("application/octet-stream"));
        QCOMPARE(parts["userID"].contentType, QString());
        QVERIFY(report["path"].toString().endsWith("/crashes/upload"));

        // The log part is this run's log file, including how it ended.
        const QByteArray log = part(report, "log");
        QCOMPARE(log, readFile(app.logPath()));
        QVERIFY(log.contains("Fatal signal"));
        QVERIFY(log.contains("Crashing on purpose"));

        const QString description = QString::fromUtf8(part(report, "description"));
        // The system report is complete, the OpenGL details included.
        QVERIFY2(description.contains("Number of connected displays: 1"), qPrintable(description));
        QVERIFY(description.contains("OpenGL Info:") && !description.contains("Renderer: unknown"));
        QCOMPARE(part(report, "userID").size(), 32);

        // The dump: the signal, the crashing function, every thread.
        const QString dump = QString::fromUtf8(part(report, "attachment0"));
        QVERIFY2(dump.startsWith("Glint Camera crash dump 1\n"), qPrintable(dump.left(300)));
        QVERIFY2(dump.contains("\nsignal: ") && dump.contains(" " + signal + "\n"),
                 qPrintable(dump.left(600)));
        QCOMPARE(dump.count(QRegularExpression("\nthread \\d+ \"")), threads);
        QVERIFY(dump.contains(QStringLiteral("\nthreads: %1\n").arg(threads)));
        const QString crashed = crashedThread(dump);
        QVERIFY2(crashed.contains(function), qPrintable(dump.left(6000)));
        if (topFrame) {
            const QString first = crashed.section('\n', 2, 2);
            QVERIFY2(first.startsWith("#0 ") && first.contains(function), qPrintable(crashed.left(2000)));
        }
        if (kind == "exception")
            QVERIFY(
                dump.contains(QRegularExpression("reason: uncaught exception std::runtime_error: thrown on "
                                                 "purpose and never caught")));
        QVERIFY(dump.contains(QRegularExpression("\nmodules:\n0x[0-9a-f]{16} 0x[0-9a-f]{16} [0-9a-f]{40} ")));

        if (kind == "null")
            resymbolises(crashed, dump, function);
    }

    // A developer can symbolise frame #0 again from the dump alone with
    // eu-addr2line on the module it names.
    void resymbolises(const QString &crashed, const QString &dump, const QString &function)
    {
        const auto frame =
            QRegularExpression("#0  0x[0-9a-f]+ (\\S+)\\+(0x[0-9a-f]+) ").match(crashed.section('\n', 2, 2));
        QVERIFY(frame.hasMatch());
        const auto module = QRegularExpression("\n0x[0-9a-f]+ 0x[0-9a-f]+ [0-9a-f]+ (\\S*/" +
                                               QRegularExpression::escape(frame.captured(1)) + ")\n")
                                .match(dump);
        QVERIFY(module.hasMatch());
        QProcess addr2line;
        addr2line.start("eu-addr2line", {"-f", "-C", "-e", module.captured(1), frame.captured(2)});
        if (!addr2line.waitForStarted(5000))
            QSKIP("eu-addr2line (elfutils) is not installed");
        QVERIFY(addr2line.waitForFinished(20000));
        const QString out = QString::fromUtf8(addr2line.readAllStandardOutput());
        // The debug information names the function without its parameters.
        QVERIFY2(out.section('\n', 0, 0).contains(function.section('(', 0, 0)), qPrintable(out));
    }

    void nextStartSaysOnceThatTheReportWasSent()
    {
        const QString home = newHome();
        {
            AppRun app(home, program, crashUrl(), server.baseUrl());
            QVERIFY(app.start());
            int threads = 0;
            QVERIFY(!crashOnce(app, "null", &threads).isEmpty());
        }
        const QString notice =
            "glint.app: Glint Camera closed unexpectedly last time. A crash report was sent.";
        for (int run = 0; run < 2; ++run) {
            AppRun app(home, program, crashUrl(), server.baseUrl());
            QVERIFY(app.start());
            QVERIFY2(app.log().count(notice) == (run == 0 ? 1 : 0), qPrintable(app.log().left(3000)));
            app.process.terminate();
            QVERIFY(app.process.waitForFinished(15000));
            QCOMPARE(app.process.exitCode(), 0);
        }
    }

    void doubleCrashReportsOnce()
    {
        AppRun app(newHome(), program, crashUrl(), server.baseUrl());
        QVERIFY(app.start());
        int threads = 0;
        const QJsonObject report = crashOnce(app, "double", &threads);
        QVERIFY(!report.isEmpty());
        const QString dump = QString::fromUtf8(part(report, "attachment0"));
        QVERIFY(crashedThread(dump).contains("dereferenceNull()"));
        QVERIFY(dump.contains("crashTwice()"));
        // No second report follows later.
        const int count = storedReports().size();
        QTest::qWait(1000);
        QCOMPARE(storedReports().size(), count);
    }

    // No report can go out: the next start says so once, and a clean end
    // leaves no note behind.
    void unsentReportIsNotedForTheNextStart_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("application killed") << "app killed";
        QTest::newRow("handler program missing") << "handler missing";
        QTest::newRow("handler program killed") << "handler killed";
    }

    void unsentReportIsNotedForTheNextStart()
    {
        QFETCH(QString, fault);
        const QString home = newHome();
        const int before = storedReports().size();
        {
            AppRun app(home, program, crashUrl(), server.baseUrl());
            if (fault == "handler missing")
                app.setEnvironment("GLINT_CRASH_HANDLER", dir.filePath("no-such-program"));
            QVERIFY(app.start());
            if (fault == "app killed") {
                app.process.kill(); // nothing in the process can catch this
                QVERIFY(ended(app.process, 5000));
                // The handler program sees the application go without a goodbye.
                QVERIFY(waitFor([&] { return QFile::exists(home + kCrashState); }, 5000));
            } else {
                if (fault == "handler killed") {
                    const qint64 helper = app.handlerProgramPid();
                    QVERIFY(helper > 0);
                    QCOMPARE(::kill(pid_t(helper), SIGKILL), 0);
                    QTest::qWait(300);
                } else {
                    QVERIFY(app.log().contains("Crash reports can't be sent in this run. Reason: "));
                }
                // The crash still ends the program with code 1, at once.
                QElapsedTimer clock;
                clock.start();
                app.crash("null");
                QVERIFY(ended(app.process, 10000));
                QCOMPARE(app.process.exitStatus(), QProcess::NormalExit);
                QCOMPARE(app.process.exitCode(), 1);
                QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
                QVERIFY(app.log().contains("Fatal signal 11 (SIGSEGV)"));
                QVERIFY(app.log().contains("no crash report was sent"));
            }
        }
        QCOMPARE(storedReports().size(), before);
        AppRun next(home, program, crashUrl(), server.baseUrl());
        QVERIFY(next.start());
        QCOMPARE(next.log().count("glint.app: Glint Camera closed unexpectedly last time. The crash report "
                                  "could not be sent."),
                 1);
        next.process.terminate();
        QVERIFY(ended(next.process, 15000));
        QCOMPARE(next.process.exitCode(), 0);
        QVERIFY(!QFile::exists(home + kCrashState));
    }
};

QTEST_MAIN(TestCrashReport)
#include "tst_crashreport.moc"
