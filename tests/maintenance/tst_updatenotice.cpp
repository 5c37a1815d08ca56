// The update notice in the real program: a lens server offers a newer
// version, the notice appears, "Skip this version" is clicked, and after a
// restart the same version is no longer offered.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <lensserverprocess.h>
#include <xwindowdriver.h>

using namespace XWindowDriver;

namespace {

const QString kArtifacts = QStringLiteral(GLINT_ARTIFACTS_DIR);

// Pixels of the accent colour (the notice's border and its "Download"
// button) in the window's bottom-right corner, where the notice sits.
int accentPixelsInCorner(const QImage &shot)
{
    int count = 0;
    for (int y = qMax(0, shot.height() - 220); y < shot.height(); ++y)
        for (int x = qMax(0, shot.width() - 500); x < shot.width(); ++x) {
            const QColor c = shot.pixelColor(x, y);
            count += (qAbs(c.red() - 0x7c) < 12 && qAbs(c.green() - 0x5c) < 12 && qAbs(c.blue() - 0xff) < 12)
                         ? 1
                         : 0;
        }
    return count;
}

} // namespace

class TestUpdateNotice : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    LensServerProcess server;
    QString program;

    QString configDir() const { return home.filePath("config/Glint/Glint Camera"); }

    // Starts the program; returns its window id, or empty.
    QString launch(QProcess &app)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.insert("GLINT_BACKEND_URL", server.baseUrl());
        env.insert("GLINT_ANALYTICS_URL", server.baseUrl() + "/analytics");
        env.insert("GLINT_UPDATE_PAGE_URL", server.baseUrl().chopped(6) + "/download");
        app.setProcessEnvironment(env);
        app.setProgram(program);
        app.start();
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 30000 && app.state() != QProcess::NotRunning) {
            const QString ids =
                run("xdotool", {"search", "--onlyvisible", "--pid", QString::number(app.processId())});
            if (!ids.isEmpty())
                return ids.split('\n').first();
            QTest::qWait(200);
        }
        return {};
    }

    QImage shot(const QString &window, const QString &name)
    {
        QDir().mkpath(kArtifacts);
        return grab(window, kArtifacts + "/" + name + ".png");
    }

    void quit(QProcess &app, const QString &window)
    {
        inWindow(window, {"key", "--clearmodifiers", "ctrl+q"});
        QVERIFY(app.waitForFinished(20000));
        QCOMPARE(app.exitCode(), 0);
    }

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
        if (run("xdotool", {"version"}).isEmpty())
            QSKIP("needs xdotool");
        QVERIFY(server.isReady());
        QVERIFY(
            server.start({"--update-version", "9.8.7.6", "--update-notes", "Faster lenses and fewer bugs."}));
        program = home.filePath(
            QStringLiteral("glint-camera-update-test-%1").arg(QCoreApplication::applicationPid()));
        QVERIFY(QFile::link(QStringLiteral(GLINT_APP_BINARY), program));
        QDir().mkpath(configDir());
        QFile settings(configDir() + "/settings.json");
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(R"({"settings": {"show_onboarding": false}})");
    }

    void skippedVersionIsNotOfferedAgain()
    {
        const QString log = configDir() + "/Log.txt";
        QImage offered;
        {
            QProcess app;
            const QString window = launch(app);
            QVERIFY2(!window.isEmpty(), "the main window did not appear");
            QVERIFY(waitFor([&] { return readFile(log).contains("Update offered: 9.8.7.6"); }, 20000));
            QTest::qWait(800);
            offered = shot(window, "update-notice");
            QVERIFY2(accentPixelsInCorner(offered) > 1500, "no notice in the corner");

            // "Skip this version": the middle of the notice's three buttons,
            // at a fixed place from the window's bottom-right corner.
            const QString geometry = run("xdotool", {"getwindowgeometry", window});
            const QStringList size = geometry.section("Geometry: ", 1).trimmed().split('x');
            QCOMPARE(size.size(), 2);
            click(window, size[0].toInt() - 20 - 16 - 130 - 8 - 65, size[1].toInt() - 20 - 16 - 19);
            QVERIFY(waitFor([&] { return readFile(log).contains("SkipUpdate"); }, 10000));
            QTest::qWait(500);
            QVERIFY2(accentPixelsInCorner(shot(window, "update-notice-skipped")) < 200, "the notice stayed");
            quit(app, window);
        }
        QVERIFY(readFile(configDir() + "/settings.json").contains("\"skip_version\""));

        QProcess again;
        const QString window = launch(again);
        QVERIFY(!window.isEmpty());
        QVERIFY(waitFor([&] { return readFile(log).contains("glint.actions: Started"); }, 20000));
        QTest::qWait(3000); // time enough for the check to come back
        QVERIFY(!readFile(log).contains("Update offered"));
        QVERIFY(accentPixelsInCorner(shot(window, "update-notice-after-restart")) < 200);
        quit(again, window);
    }
};

QTEST_MAIN(TestUpdateNotice)
#include "tst_updatenotice.moc"
