// Drives the real program's lens explorer on the X display of the test run:
// search for a lens, apply it, mark it favourite; screenshots of the
// explorer, the lens details and the settings page are kept as artefacts.
#include "lensserverprocess.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>
#include <programundertest.h>

namespace {

const QString kArtifacts = QStringLiteral(GLINT_ARTIFACTS_DIR);

using namespace XWindowDriver;

QImage artefact(const QString &window, const QString &name)
{
    QDir().mkpath(kArtifacts);
    return XWindowDriver::grab(window, kArtifacts + "/" + name + ".png");
}

} // namespace

class TestLensExplorer : public QObject
{
    Q_OBJECT
    QTemporaryDir home;
    LensServerProcess server;
    ProgramUnderTest app{
        home.path(), QStringLiteral("glint-camera-explorer-test-%1").arg(QCoreApplication::applicationPid()),
        GLINT_APP_BINARY};

private slots:
    void initTestCase()
    {
        if (const QString missing = ProgramUnderTest::missingDisplay(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QStringList lenses;
        for (const char *name : {"film-noir", "party-hat", "sunglasses", "retro-vhs"})
            lenses << QStringLiteral(GLINT_SAMPLE_LENSES "/") + name;
        QVERIFY(server.import(lenses, true));
        QVERIFY(server.start());
    }

    void searchApplyAndFavourite()
    {
        QVERIFY(app.writeSettings(R"({"settings": {"show_onboarding": false}})"));
        app.setEnv("GLINT_BACKEND_URL", server.baseUrl());
        app.setEnv("GLINT_LENS_VERIFICATION_KEY", server.publicKey());

        // One instance runs per machine: while another test's instance runs,
        // ours only shows the "already running" box and never starts; on a
        // busy machine the window may also come late. Either way the program
        // is closed and started again.
        QString window;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 120000) {
            app.start();
            window = app.waitForWindow();
            if (!window.isEmpty() && app.logShows("glint.actions: Started"))
                break;
            app.kill();
            QTest::qWait(3000);
        }
        QVERIFY2(!window.isEmpty() && app.logShows("glint.actions: Started", 30000),
                 qPrintable(app.log().right(2000)));
        const QString geometry = run("xdotool", {"getwindowgeometry", "--shell", window});
        const int width = QRegularExpression("WIDTH=(\\d+)").match(geometry).captured(1).toInt();
        const int height = QRegularExpression("HEIGHT=(\\d+)").match(geometry).captured(1).toInt();

        // The camera picture is in colour before any lens.
        QVERIFY(waitFor([&] { return saturation(artefact(window, "lens-explorer")) > 40; }));

        inWindow(window, {"key", "--clearmodifiers", "ctrl+f"});
        QProcess::execute("xdotool", {"type", "--delay", "60", "noir"});
        QVERIFY(app.logShows("SetSearchFilter QVariant(QString, noir)"));
        QTest::qWait(1500); // the answer and the tile's icon

        // The first result sits at the top left of the lens panel, below the
        // current lens card and the search field.
        const int tileX = width - 292, tileY = 236;
        click(window, tileX, tileY);
        QVERIFY(
            app.logShows("SetCoreProcessingLens QVariant(VCam::LensCommand, LensCommand(film-noir", 30000));
        // Applied: the picture turns black and white.
        QVERIFY(waitFor(
            [&] {
                const double value = saturation(artefact(window, "lens-explorer-applied"));
                return value >= 0 && value < 8;
            },
            30000));

        // The details of the lens, then its favourite button (the dialog is
        // centred; the button sits right of "Take off", above the shortcut).
        click(window, tileX, tileY, 3);
        QTest::qWait(800);
        artefact(window, "lens-details");
        click(window, width / 2 - 10, height / 2 + 69);
        QVERIFY(app.logShows("SetLensFavorite"));
        inWindow(window, {"key", "Escape"});

        inWindow(window, {"key", "--clearmodifiers", "ctrl+comma"});
        QVERIFY(app.logShows("OpenSettingsPage"));
        QTest::qWait(500);
        artefact(window, "settings-lenses");

        QVERIFY(app.quit(window));
        // No binding or type errors from the explorer's documents.
        const QRegularExpression qmlWarning("qrc:/qml/components/(Lens|CurrentLens)[^\n]*");
        QVERIFY2(!qmlWarning.match(app.log()).hasMatch(), qPrintable(qmlWarning.match(app.log()).captured()));
        const QJsonObject lensesSection =
            QJsonDocument::fromJson(readFile(app.configDir() + "/settings.json").toUtf8())
                .object()["lenses"]
                .toObject();
        QCOMPARE(lensesSection["favorites"].toArray(), QJsonArray{"film-noir"});
        QCOMPARE(lensesSection["recents"].toArray().first().toObject()["lensId"].toString(),
                 QString("film-noir"));
    }
};

QTEST_GUILESS_MAIN(TestLensExplorer)
#include "tst_lensexplorer.moc"
