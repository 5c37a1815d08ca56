// The update notice in the real program: a lens server offers a newer
// version, the notice appears, "Skip this version" is clicked, and after a
// restart the same version is no longer offered.
#include <QTemporaryDir>
#include <QtTest>
#include <lensserverprocess.h>
#include <programundertest.h>
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

    // Starts the program against the test's server; returns its window id, or empty.
    QString launch(ProgramUnderTest &app)
    {
        app.setEnv("GLINT_BACKEND_URL", server.baseUrl());
        app.setEnv("GLINT_ANALYTICS_URL", server.baseUrl() + "/analytics");
        app.setEnv("GLINT_UPDATE_PAGE_URL", server.baseUrl().chopped(6) + "/download");
        app.start();
        return app.waitForWindow();
    }
    ProgramUnderTest program()
    {
        return ProgramUnderTest(
            home.path(),
            QStringLiteral("glint-camera-update-test-%1").arg(QCoreApplication::applicationPid()),
            GLINT_APP_BINARY);
    }

    QImage shot(const QString &window, const QString &name)
    {
        QDir().mkpath(kArtifacts);
        return grab(window, kArtifacts + "/" + name + ".png");
    }

private slots:
    void initTestCase()
    {
        if (const QString missing = ProgramUnderTest::missingDisplay(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QVERIFY(
            server.start({"--update-version", "9.8.7.6", "--update-notes", "Faster lenses and fewer bugs."}));
        QVERIFY(program().writeSettings(R"({"settings": {"show_onboarding": false}})"));
    }

    void skippedVersionIsNotOfferedAgain()
    {
        {
            ProgramUnderTest app = program();
            const QString window = launch(app);
            QVERIFY2(!window.isEmpty(), qPrintable(app.whyNoWindow()));
            QVERIFY(app.logShows("Update offered: 9.8.7.6"));
            QTest::qWait(800);
            QVERIFY2(accentPixelsInCorner(shot(window, "update-notice")) > 1500, "no notice in the corner");

            // "Skip this version": the middle of the notice's three buttons,
            // at a fixed place from the window's bottom-right corner.
            const QStringList size =
                run("xdotool", {"getwindowgeometry", window}).section("Geometry: ", 1).trimmed().split('x');
            click(window, size[0].toInt() - 20 - 16 - 130 - 8 - 65, size[1].toInt() - 20 - 16 - 19);
            QVERIFY(app.logShows("SkipUpdate", 10000));
            QTest::qWait(500);
            QVERIFY2(accentPixelsInCorner(shot(window, "update-notice-skipped")) < 200, "the notice stayed");
            QVERIFY(app.quit(window));
            QVERIFY(readFile(app.configDir() + "/settings.json").contains("\"skip_version\""));
        }

        ProgramUnderTest again = program();
        const QString window = launch(again);
        QVERIFY2(!window.isEmpty(), qPrintable(again.whyNoWindow()));
        QVERIFY(again.logShows("glint.actions: Started"));
        QTest::qWait(3000); // time enough for the check to come back
        QVERIFY(!again.log().contains("Update offered"));
        QVERIFY(accentPixelsInCorner(shot(window, "update-notice-after-restart")) < 200);
        QVERIFY(again.quit(window));
    }
};

QTEST_MAIN(TestUpdateNotice)
#include "tst_updatenotice.moc"
