// Starts the real program on the X display of the test run and drives it
// with xdotool: start-up, page switching, shutdown order, one instance at a
// time, a lens with a tap, and the log file.
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>
#include <programundertest.h>
#include <singleinstanceguard.h>
#include <xwindowdriver.h>

namespace {

const QString kArtifacts = QStringLiteral(GLINT_ARTIFACTS_DIR);

using namespace XWindowDriver;

// The program's name in this test: the single-instance guard is per name.
QString programName()
{
    return QStringLiteral("glint-camera-startup-test-%1").arg(QCoreApplication::applicationPid());
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
    return waitFor([&] { return showsContent(grab(windowId, kArtifacts + "/" + name + ".png")); }, 5000);
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    // One instance of the program with its home folders under home/<folder>.
    std::unique_ptr<ProgramUnderTest> instance(const QString &folder)
    {
        QDir().mkpath(home.filePath(folder));
        return std::make_unique<ProgramUnderTest>(home.filePath(folder), programName(), GLINT_APP_BINARY);
    }

private slots:
    void initTestCase()
    {
        if (const QString missing = ProgramUnderTest::missingDisplay(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(QFile::exists(GLINT_APP_BINARY));
    }

    void windowOpensSwitchesPagesAndShutsDownInOrder()
    {
        auto app = instance("main");
        QVERIFY(QDir().mkpath(app->configDir()));
        QVERIFY(writeFile(app->configDir() + "/Log.txt", "line from an earlier run\n"));

        app->start();
        const QString window = app->waitForWindow();
        QVERIFY2(!window.isEmpty(), "the main window did not appear");
        QVERIFY(app->logShows("glint.actions: Started"));
        QVERIFY(screenshot(window, "main-window-onboarding"));
        const std::pair<const char *, const char *> pages[] = {
            {"ctrl+comma", "OpenSettingsPage"}, {"ctrl+2", "OpenTwitchPage"}, {"ctrl+1", "OpenMainPage"}};
        for (const auto &[keys, action] : pages) {
            inWindow(window, {"key", "--clearmodifiers", keys}); // as a user types them
            QVERIFY2(app->logShows(action), action);
        }
        QVERIFY(app->quit(window));

        const QString log = app->log();
        QVERIFY(!log.contains("line from an earlier run"));
        QVERIFY(!log.contains("Application started"));
        const int engine = log.indexOf("QmlEngine destroyed"), dispatcher = log.indexOf("Dispatcher stopped");
        QVERIFY(engine > 0 && dispatcher > engine && log.indexOf("Application destructed") > dispatcher);
        // Preferences saved by the last run show on the next start, and a
        // SIGTERM (as at logout) ends it in order too, saving the settings.
        QVERIFY(app->writeSettings(R"({"settings": {"show_onboarding": false, "mirror_preview": false}})"));
        app->start();
        const QString again = app->waitForWindow();
        QVERIFY(app->logShows("glint.actions: Started"));
        QVERIFY(screenshot(again, "main-window"));
        QFile::remove(app->configDir() + "/settings.json");
        app->process.terminate();
        QVERIFY(app->process.waitForFinished(15000));
        QVERIFY(app->process.exitStatus() == QProcess::NormalExit && app->process.exitCode() == 0);
        QVERIFY(app->log().contains("Dispatcher stopped"));
        const QString saved = readFile(app->configDir() + "/settings.json");
        QVERIFY2(saved.contains("\"mirror_preview\": false") && saved.contains("\"show_onboarding\": false"),
                 qPrintable(saved));
        // The guard was released: the next start finds it free.
        VCam::SingleInstanceGuard next(programName());
        QVERIFY(next.tryToRun());
    }

    void secondInstanceIsRefused()
    {
        // Separate configuration folders keep the two logs apart; the guard
        // is per user and name, so the two still compete.
        auto first = instance("first");
        auto second = instance("second");
        first->start();
        second->start();
        const auto started = [](auto &app) { return app->log().contains("glint.actions: Started"); };
        QVERIFY2(waitFor([&] { return started(first) || started(second); }, 20000),
                 "neither instance started");
        ProgramUnderTest *running = started(first) ? first.get() : second.get();
        ProgramUnderTest &refused = started(first) ? *second : *first;
        // The refused instance waits on its message box; answer it.
        const QString box = refused.waitForWindow();
        QVERIFY2(!box.isEmpty(), "the refused instance showed no message");
        inWindow(box, {"key", "--clearmodifiers", "Return"});
        QVERIFY(refused.process.waitForFinished(10000));
        QCOMPARE(refused.process.exitCode(), 1);
        QCOMPARE(running->process.state(), QProcess::Running);
        QVERIFY(running->quit(running->waitForWindow()));
    }

    void lensOnTheDemoCameraAndATapOnThePreview()
    {
        auto app = instance("lens");
        QVERIFY(app->writeSettings(R"({"settings": {"show_onboarding": false}})"));
        app->start({"--lens", QStringLiteral(GLINT_LENSES_DIR "/color-pop")});
        const QString window = app->waitForWindow();
        QVERIFY2(!window.isEmpty(), qPrintable(app->whyNoWindow()));
        // The preview fills the middle of the window once frames arrive.
        const auto previewColour = [&](const QString &name) {
            screenshot(window, name);
            const QImage shot(kArtifacts + "/" + name + ".png");
            return QColor(
                shot.copy(shot.width() * 0.15, shot.height() * 0.3, shot.width() * 0.4, shot.height() * 0.4)
                    .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                    .pixel(0, 0));
        };
        QColor before;
        QVERIFY2(waitFor([&] { return (before = previewColour("main-window-lens")).value() >= 40; }, 20000),
                 "no picture appeared in the preview"); // not the dark empty stage

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
        QVERIFY(app->quit(window));
    }

    void unwritableLogFolderStillStarts()
    {
        auto app = instance("unwritable");
        QVERIFY(writeFile(home.filePath("unwritable/config"), {})); // a file where the folder should be
        app->process.setProcessChannelMode(QProcess::MergedChannels);
        app->start();
        const QString window = app->waitForWindow();
        QVERIFY2(!window.isEmpty(), qPrintable(app->whyNoWindow()));
        QVERIFY(app->quit(window));
        const QString output = QString::fromLocal8Bit(app->process.readAll());
        QVERIFY(output.contains("App settings couldn't be saved. Reason: "));
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
