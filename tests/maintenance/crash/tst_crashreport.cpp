// Crashes the real application (built with the test-only trigger) and
// checks what the real lens server receives: one multipart report with the
// log, the system report, the user id and a dump that names the crashing
// function and has every thread; exit code 1 within 10 seconds. Also a
// double crash, and a missing handler program with what the next start
// says. The upload itself: a large dump from its file, no second attempt
// after a failure, an answer that never ends cut off at the timeout.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <crashreporter.h>
#include <httpfixture.h>
#include <lensserverprocess.h>
#include <programundertest.h>

using CrashReport::CrashReporter;
using XWindowDriver::waitFor;

namespace {

// Where the handler program notes a run that ended without a goodbye.
const QString kCrashState = QStringLiteral("/data/Glint/Glint Camera/crashes/crash-state");

// waitForFinished() is false for a process that has already ended.
bool ended(QProcess &process, int timeoutMs)
{
    return process.state() == QProcess::NotRunning || process.waitForFinished(timeoutMs);
}

// One run of the crash-test build, offscreen, in a home folder of its own.
struct AppRun : ProgramUnderTest
{
    AppRun(const QString &home, const LensServerProcess &server)
        : ProgramUnderTest(
              home, QStringLiteral("glint-camera-crash-test-%1").arg(QCoreApplication::applicationPid()),
              GLINT_CRASH_APP)
    {
        QProcessEnvironment env = process.processEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("QT_QUICK_BACKEND", "software"); // no OpenGL window surface offscreen
        env.insert("GLINT_CRASH_URL", QStringLiteral("http://127.0.0.1:%1/crash").arg(server.port()));
        env.insert("GLINT_BACKEND_URL", server.baseUrl());
        env.insert("GLINT_CRASH_TRIGGER", "stdin");
        env.remove("GLINT_CRASH_HANDLER");
        process.setProcessEnvironment(env);
    }

    // Started, with the system report complete (OpenGL details included).
    bool start()
    {
        QFile::remove(configDir() + "/Log.txt"); // the previous run's must not count
        ProgramUnderTest::start();
        return process.waitForStarted(10000) && logShows("System report ready", 60000);
    }

    // Sends a trigger command; returns the thread count it announced.
    int crash(const QByteArray &kind)
    {
        process.write(kind + "\n");
        QRegularExpressionMatch match;
        waitFor(
            [&] {
                m_out += process.readAllStandardOutput();
                match = QRegularExpression("fault (\\d+) ").match(QString::fromLatin1(m_out));
                return match.hasMatch() || process.state() == QProcess::NotRunning;
            },
            10000);
        return match.hasMatch() ? match.captured(1).toInt() : -1;
    }

    QByteArray m_out;
};

const QByteArray kUpload = "/crash/x/crashes/upload";

bool send(const HttpFixture &server, CrashReporter::Report report, int timeoutMs, QString *error)
{
    report.url = QUrl(server.url(kUpload));
    return CrashReporter::sendReport(report, timeoutMs, error);
}

} // namespace

class TestCrashReport : public QObject
{
    Q_OBJECT
    LensServerProcess server;
    QTemporaryDir dir;
    int homes = 0;

    QString newHome()
    {
        const QString home = dir.filePath(QStringLiteral("home%1").arg(++homes));
        return QDir().mkpath(home) ? home : QString();
    }

    QByteArray serverCommand(const QStringList &arguments)
    {
        QProcess command;
        command.start(LensServerProcess::serverPath(),
                      QStringList{"crashes"} + arguments + QStringList{"--data-dir", server.dataDir()});
        command.waitForFinished(20000);
        return command.readAllStandardOutput();
    }

    QJsonArray storedReports() { return QJsonDocument::fromJson(serverCommand({"json"})).array(); }

    QByteArray part(const QJsonObject &report, const QString &name)
    {
        return serverCommand({"part", QString::number(report["id"].toInt()), name});
    }

private slots:
    void initTestCase()
    {
        QVERIFY(server.isReady());
        QVERIFY(server.start());
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
        // Two threads fault at once: one report, and no second one later.
        QTest::newRow("double crash") << QByteArray("double") << "SIGSEGV"
                                      << "dereferenceNull()" << true;
    }

    void crashIsReported()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QString, signal);
        QFETCH(QString, function);
        QFETCH(bool, topFrame);
        AppRun app(newHome(), server);
        QVERIFY2(app.start(), qPrintable(app.log().right(2000)));
        // Code 1 within 10 s, and exactly one report with four parts (each
        // is read below by its name).
        const int before = storedReports().size();
        // The double crash starts its second thread after the count.
        const int threads = app.crash(kind) + (kind == "double" ? 1 : 0);
        QVERIFY(ended(app.process, 10000));
        QCOMPARE(app.process.exitStatus(), QProcess::NormalExit);
        QVERIFY2(app.process.exitCode() == 1, app.process.readAllStandardError().right(3000).constData());
        const QJsonArray after = storedReports();
        QCOMPARE(after.size(), before + 1);
        const QJsonObject report = after.first().toObject(); // newest first
        QCOMPARE(report["parts"].toArray().size(), 4);

        // The log part is this run's log file, including how it ended.
        const QByteArray log = part(report, "log");
        QCOMPARE(log, XWindowDriver::readFile(app.configDir() + "/Log.txt").toUtf8());
        QVERIFY(log.contains("Fatal signal") && log.contains("Crashing on purpose"));
        // The system report is complete, the OpenGL details included.
        const QString description = QString::fromUtf8(part(report, "description"));
        QVERIFY2(description.contains("OpenGL Info:") && !description.contains("Renderer: unknown"),
                 qPrintable(description));
        QVERIFY(!part(report, "userID").isEmpty());

        // The dump: the signal, the crashing function, every thread.
        const QString dump = QString::fromUtf8(part(report, "attachment0"));
        QVERIFY2(dump.contains("\nsignal: ") && dump.contains(" " + signal + "\n"),
                 qPrintable(dump.left(600)));
        QCOMPARE(dump.count(QRegularExpression("\nthread \\d+ \"")), threads);
        QVERIFY(dump.contains(QStringLiteral("\nthreads: %1\n").arg(threads)));
        // The crashed thread's section: its heading, then its frames.
        const int start = dump.indexOf(QRegularExpression("\nthread \\d+ \"[^\"]*\" crashed:\n"));
        const QString crashed =
            start < 0 ? QString() : dump.mid(start, dump.indexOf("\n\n", start + 1) - start);
        QVERIFY2(crashed.contains(function), qPrintable(dump.left(6000)));
        const QString first = crashed.section('\n', 2, 2);
        QVERIFY2(!topFrame || (first.startsWith("#0 ") && first.contains(function)),
                 qPrintable(crashed.left(2000)));
        if (kind == "exception")
            QVERIFY(dump.contains(
                "reason: uncaught exception std::runtime_error: thrown on purpose and never caught"));
        QVERIFY(dump.contains(QRegularExpression("\nmodules:\n0x[0-9a-f]{16} 0x[0-9a-f]{16} [0-9a-f]{40} ")));
        if (kind == "double") {
            QVERIFY(dump.contains("crashTwice()"));
            const int count = storedReports().size();
            QTest::qWait(1000);
            QCOMPARE(storedReports().size(), count);
        }
    }

    // The handler program is missing: the crash still ends the program with
    // code 1, at once; the next start says once that no report went out,
    // and its clean end leaves no note behind.
    void missingHandlerIsNotedForTheNextStart()
    {
        const QString home = newHome();
        const int before = storedReports().size();
        {
            AppRun app(home, server);
            app.setEnv("GLINT_CRASH_HANDLER", dir.filePath("no-such-program"));
            QVERIFY(app.start());
            QElapsedTimer clock;
            clock.start();
            app.crash("null");
            QVERIFY(ended(app.process, 10000));
            QVERIFY(app.process.exitStatus() == QProcess::NormalExit && app.process.exitCode() == 1);
            QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
            QVERIFY(app.log().contains("no crash report was sent"));
        }
        QCOMPARE(storedReports().size(), before);
        AppRun next(home, server);
        QVERIFY(next.start());
        QCOMPARE(next.log().count("glint.app: Glint Camera closed unexpectedly last time. The crash report "
                                  "could not be sent."),
                 1);
        next.process.terminate();
        QVERIFY(ended(next.process, 15000) && next.process.exitCode() == 0);
        QVERIFY(!QFile::exists(home + kCrashState));
    }

    // The request alone, to a fixture (the reporter blocks its thread while it
    // uploads; the fixture answers from its own): a dump larger than the
    // buffer travels whole from its file, a failure is not retried, and an
    // answer that never ends is cut off at the timeout.
    void uploadStreamsLargeDumpsAndGivesUpOnFailures()
    {
        HttpFixture fixture;
        fixture.route(kUpload, 201, {});
        QFile file(dir.filePath("big.dump"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QByteArray content;
        for (int i = 0; content.size() < 3 * CrashReporter::kDumpBufferSize / 2; ++i)
            content += QByteArray::number(i) + ' ';
        file.write(content);
        file.close();
        CrashReporter::Report report;
        report.dumpPath = file.fileName();
        QString error;
        QVERIFY2(send(fixture, report, 5000, &error), qPrintable(error));
        QVERIFY(fixture.received().value(0).body.contains(content));

        fixture.route(kUpload, 500, {});
        QVERIFY(!send(fixture, report, 5000, &error));
        QVERIFY(!error.isEmpty());
        QTest::qWait(300);
        QCOMPARE(fixture.received().size(), 2);

        HttpFixture::Response endless;
        endless.trickle = true;
        fixture.route(kUpload, endless);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!send(fixture, report, 1000, &error));
        QVERIFY2(clock.elapsed() < 4000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(error.contains("longer than 1000 ms"), qPrintable(error));
        QCOMPARE(fixture.received().size(), 3);
    }
};

QTEST_MAIN(TestCrashReport)
#include "tst_crashreport.moc"
