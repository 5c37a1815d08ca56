// Starts the real program on the X display of the test run and drives it
// with xdotool: start-up, page switching, shutdown order, one instance at a
// time, and the log file.
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <singleinstanceguard.h>
#include <xwindowdriver.h>

namespace {

const QString kBinary = QStringLiteral(GLINT_APP_BINARY);

// The program under a name of this test's own. One instance may run per
// program name and user, so a name of its own keeps this test clear of a
// Glint Camera the developer runs and of other tests that start it.
QString g_program;
QString programName()
{
    return QStringLiteral("glint-camera-startup-test-%1").arg(QCoreApplication::applicationPid());
}
const QString kArtifacts = QStringLiteral(GLINT_ARTIFACTS_DIR);

using namespace XWindowDriver;

// One running instance of the program with its own configuration folder.
class AppInstance
{
public:
    explicit AppInstance(const QString &configHome, const QStringList &arguments = {})
    {
        process.setArguments(arguments);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", configHome);
        env.insert("QT_QPA_PLATFORM", "xcb");
        process.setProcessEnvironment(env);
        process.setProgram(g_program);
    }
    ~AppInstance()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    void start() { process.start(); }

    // The id of the program's first visible window, or empty after the timeout.
    QString waitForWindow(int timeoutMs = 20000)
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < timeoutMs && process.state() != QProcess::NotRunning) {
            const QString ids =
                run("xdotool", {"search", "--onlyvisible", "--pid", QString::number(process.processId())});
            if (!ids.isEmpty())
                return ids.split('\n').first();
            QTest::qWait(200);
        }
        return {};
    }

    QProcess process;
};

bool waitForLog(const QString &logPath, const QString &text, int timeoutMs = 10000)
{
    return waitFor([&] { return readFile(logPath).contains(text); }, timeoutMs);
}

bool showsContent(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7)
            colours.insert(image.pixel(x, y));
    return colours.size() > 20;
}

// Saves the window's picture as a test artefact once it shows more than a
// blank surface (the first frames may still be empty); false if it never does.
bool screenshot(const QString &windowId, const QString &name)
{
    QDir().mkpath(kArtifacts);
    const QString file = kArtifacts + "/" + name + ".png";
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (showsContent(XWindowDriver::grab(windowId, file)))
            return true;
        QTest::qWait(250);
    }
    return false;
}

// Types keys into the window as a user would (through the X test
// extension, to the window that has the focus).
void sendKeys(const QString &windowId, const QString &keys)
{
    inWindow(windowId, {"key", "--clearmodifiers", keys});
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    QString configHome() const { return home.filePath("config"); }
    QString logPath() const { return configHome() + "/Glint/Glint Camera/Log.txt"; }
    QString settingsPath() const { return configHome() + "/Glint/Glint Camera/settings.json"; }

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
        if (run("xdotool", {"version"}).isEmpty())
            QSKIP("needs xdotool");
        QVERIFY(QFile::exists(kBinary));
        g_program = home.filePath(programName());
        QVERIFY(QFile::link(kBinary, g_program));
    }

    void windowOpensSwitchesPagesAndShutsDownInOrder()
    {
        QDir().mkpath(QFileInfo(logPath()).absolutePath());
        QFile stale(logPath());
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write("line from an earlier run\n");
        stale.close();

        AppInstance app(configHome());
        app.start();
        const QString window = app.waitForWindow();
        QVERIFY2(!window.isEmpty(), "the main window did not appear");
        QVERIFY(waitForLog(logPath(), "glint.actions: Started"));
        QVERIFY(screenshot(window, "main-window-onboarding"));

        sendKeys(window, "ctrl+comma");
        QVERIFY(waitForLog(logPath(), "OpenSettingsPage"));
        sendKeys(window, "ctrl+2");
        QVERIFY(waitForLog(logPath(), "OpenTwitchPage"));
        sendKeys(window, "ctrl+1");
        QVERIFY(waitForLog(logPath(), "OpenMainPage"));

        sendKeys(window, "ctrl+q");
        QVERIFY(app.process.waitForFinished(15000));
        QCOMPARE(app.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.process.exitCode(), 0);

        const QString log = readFile(logPath());
        QVERIFY(!log.contains("line from an earlier run"));
        QVERIFY(!log.contains("Application started"));
        const int engine = log.indexOf("QmlEngine destroyed");
        const int dispatcher = log.indexOf("Dispatcher stopped");
        const int destructed = log.indexOf("Application destructed");
        QVERIFY(engine > 0);
        QVERIFY(dispatcher > engine);
        QVERIFY(destructed > dispatcher);
        QVERIFY(QFile::exists(settingsPath()));
    }

    void savedPreferencesShowOnTheNextStart()
    {
        QFile settings(settingsPath());
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(R"({"settings": {"show_onboarding": false, "mirror_preview": false}})");
        settings.close();

        AppInstance app(configHome());
        app.start();
        const QString window = app.waitForWindow();
        QVERIFY(!window.isEmpty());
        QVERIFY(waitForLog(logPath(), "glint.actions: Started"));
        QTest::qWait(500);
        QVERIFY(screenshot(window, "main-window"));
        sendKeys(window, "ctrl+comma");
        QVERIFY(waitForLog(logPath(), "OpenSettingsPage"));
        QTest::qWait(500);
        QVERIFY(screenshot(window, "settings-page"));
        sendKeys(window, "ctrl+q");
        QVERIFY(app.process.waitForFinished(15000));
        QCOMPARE(app.process.exitCode(), 0);
        const QString saved = readFile(settingsPath());
        QVERIFY2(saved.contains("\"mirror_preview\": false"), qPrintable(saved));
        QVERIFY(saved.contains("\"show_onboarding\": false"));
    }

    void terminationSignalShutsDownInOrder()
    {
        AppInstance app(home.filePath("terminated"));
        app.start();
        QVERIFY(!app.waitForWindow().isEmpty());
        const QString log = home.filePath("terminated") + "/Glint/Glint Camera/Log.txt";
        QVERIFY(waitForLog(log, "glint.actions: Started"));
        app.process.terminate(); // SIGTERM, as at logout
        QVERIFY(app.process.waitForFinished(15000));
        QCOMPARE(app.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.process.exitCode(), 0);
        QVERIFY(readFile(log).contains("Dispatcher stopped"));
        QVERIFY(QFile::exists(home.filePath("terminated") + "/Glint/Glint Camera/settings.json"));
        // The guard was released: the next start finds it free.
        VCam::SingleInstanceGuard next(programName());
        QVERIFY(next.tryToRun());
    }

    void secondInstanceIsRefused()
    {
        // Separate configuration folders keep the two logs apart; the guard
        // is per user, so the two still compete.
        AppInstance first(home.filePath("first"));
        AppInstance second(home.filePath("second"));
        first.start();
        second.start();
        const auto logOf = [&](const QString &config) { return config + "/Glint/Glint Camera/Log.txt"; };
        AppInstance *running = nullptr;
        QElapsedTimer clock;
        clock.start();
        while (!running && clock.elapsed() < 20000) {
            if (readFile(logOf(home.filePath("first"))).contains("glint.actions: Started"))
                running = &first;
            else if (readFile(logOf(home.filePath("second"))).contains("glint.actions: Started"))
                running = &second;
            else
                QTest::qWait(100);
        }
        QVERIFY2(running, "neither instance started");
        AppInstance &refused = running == &first ? second : first;
        // The refused instance waits on its message box; answer it.
        const QString box = refused.waitForWindow();
        QVERIFY2(!box.isEmpty(), "the refused instance showed no message");
        sendKeys(box, "Return");
        QVERIFY(refused.process.waitForFinished(10000));
        QCOMPARE(refused.process.exitCode(), 1);
        QCOMPARE(running->process.state(), QProcess::Running);

        sendKeys(running->waitForWindow(), "ctrl+q");
        QVERIFY(running->process.waitForFinished(15000));
        QCOMPARE(running->process.exitCode(), 0);
    }

    void lensOnTheDemoCameraAndATapOnThePreview()
    {
        const QString config = home.filePath("lens");
        QDir().mkpath(config + "/Glint/Glint Camera");
        QFile settings(config + "/Glint/Glint Camera/settings.json");
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(R"({"settings": {"show_onboarding": false}})");
        settings.close();

        AppInstance app(config, {"--lens", QStringLiteral(GLINT_LENSES_DIR "/color-pop")});
        app.start();
        const QString window = app.waitForWindow();
        QVERIFY(!window.isEmpty());
        // The preview fills the middle of the window once frames arrive.
        const auto previewColour = [&](const QString &name) {
            screenshot(window, name);
            const QImage shot(kArtifacts + "/" + name + ".png");
            const QRect middle(shot.width() * 0.15, shot.height() * 0.3, shot.width() * 0.4,
                               shot.height() * 0.4);
            qint64 r = 0, g = 0, b = 0, n = 0;
            for (int y = middle.top(); y < middle.bottom(); y += 5)
                for (int x = middle.left(); x < middle.right(); x += 5, ++n) {
                    const QColor c = shot.pixelColor(x, y);
                    r += c.red(), g += c.green(), b += c.blue();
                }
            return QColor(int(r / n), int(g / n), int(b / n));
        };
        QElapsedTimer clock;
        clock.start();
        QColor before = previewColour("main-window-lens");
        while (before.value() < 40 && clock.elapsed() < 20000) { // still the dark empty stage
            QTest::qWait(500);
            before = previewColour("main-window-lens");
        }
        QVERIFY2(before.value() >= 40, "no picture appeared in the preview");

        // A tap on the picture moves the lens on to its next colours.
        const QString geometry = run("xdotool", {"getwindowgeometry", window});
        const QStringList size = geometry.section("Geometry: ", 1).trimmed().split('x');
        QVERIFY(size.size() == 2);
        click(window, size[0].toInt() * 35 / 100, size[1].toInt() / 2);
        QTest::qWait(1500);
        const QColor after = previewColour("main-window-lens-tapped");
        const int change = std::abs(after.red() - before.red()) + std::abs(after.green() - before.green()) +
                           std::abs(after.blue() - before.blue());
        QVERIFY2(change > 40, qPrintable(QString("colour %1 -> %2").arg(before.name(), after.name())));

        sendKeys(window, "ctrl+q");
        QVERIFY(app.process.waitForFinished(15000));
        QCOMPARE(app.process.exitCode(), 0);
    }

    void unwritableLogFolderStillStarts()
    {
        const QString blocker = home.filePath("not-a-folder");
        QFile file(blocker);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        AppInstance app(blocker);
        app.process.setProcessChannelMode(QProcess::MergedChannels);
        app.start();
        const QString window = app.waitForWindow();
        QVERIFY(!window.isEmpty());
        sendKeys(window, "ctrl+q");
        QVERIFY(app.process.waitForFinished(15000));
        QCOMPARE(app.process.exitCode(), 0);
        const QString output = QString::fromLocal8Bit(app.process.readAll());
        QVERIFY(output.contains("Application::loadSettings"));
        QVERIFY(output.contains("App settings couldn't be saved. Reason: "));
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
