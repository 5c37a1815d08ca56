// The update check against the real lens server started with
// --update-version, and against a fixture for answers the server would never
// give (HTML, broken JSON, missing fields, errors).
#include <QSignalSpy>
#include <QtTest>
#include <httpfixture.h>
#include <lensserverprocess.h>
#include <messagecapture.h>
#include <networkmanager.h>
#include <updateservice.h>

using namespace VCam;

namespace {

const QUrl kFallback(QStringLiteral("http://127.0.0.1:9/fallback"));

// One check; the offered version, or empty when nothing was offered once
// the answers are in.
struct Check
{
    Check(const QString &baseUrl, const QString &installed)
        : network(baseUrl, [] { return QStringLiteral("update-test"); }),
          service(&network, Version::fromString(installed), kFallback)
    {}

    QString run(bool userRequested, int settleMs = 1500)
    {
        QSignalSpy offers(&service, &IUpdateService::latestVersionAvailable);
        QSignalSpy urls(&service, &IUpdateService::latestVersionUrlAvailable);
        service.checkForUpdates(userRequested);
        QElapsedTimer clock;
        clock.start();
        while (offers.isEmpty() && clock.elapsed() < settleMs)
            QTest::qWait(25);
        if (offers.isEmpty())
            return QString();
        notes = offers.first().at(1).toString();
        url = urls.isEmpty() ? QUrl() : urls.first().first().toUrl();
        return offers.first().first().toString();
    }

    NetworkManager network;
    UpdateService service;
    QString notes;
    QUrl url;
};

} // namespace

class TestUpdateService : public QObject
{
    Q_OBJECT

private slots:
    void versionText()
    {
        QCOMPARE(Version::fromString("1.2.3.4").toString(), QStringLiteral("1.2.3.4"));
        for (const char *bad : {"1.2.3", "1.2.3.4.5", "1.2.-3.4", "1.2.x.4", " 1.2.3.4", "1..3.4", "",
                                "1.2.3.99999999999", "1.2.3.+4"})
            QVERIFY2(!Version::fromString(bad).isValid(), bad);
        QVERIFY(!Version::fromString("0.0.0.0").isValid());
        QVERIFY(Version::fromString("0.0.0.1").isValid());
        const Version v = Version::fromString("2.0.10.7");
        QCOMPARE(Version::fromJson(v.toJson()), v);
        QVERIFY(!Version::fromJson(nlohmann::json{{"major", 1}, {"minor", "2"}, {"patch", 0}, {"build", 0}})
                     .isValid());
        QVERIFY(
            !Version::fromJson(nlohmann::json{{"major", 1LL << 40}, {"minor", 0}, {"patch", 0}, {"build", 0}})
                 .isValid());
        QVERIFY(Version::fromString("1.10.0.0") != Version::fromString("1.9.0.0"));
        QVERIFY(Version::fromString("1.9.0.0") < Version::fromString("1.10.0.0"));
    }

    void offersFollowTheInstalledAndSkippedVersions()
    {
        LensServerProcess server;
        QVERIFY(server.isReady());
        const auto serve = [&](const QString &version) {
            server.stop();
            return server.start({"--update-version", version, "--update-notes", "Sharper faces",
                                 "--update-url", "http://127.0.0.1:8490/download/glint.deb"});
        };

        QVERIFY(serve("1.2.0.0"));
        {
            Check same(server.baseUrl(), "1.2.0.0");
            QCOMPARE(same.run(false), QString()); // what is installed is not offered
            QCOMPARE(same.run(true), QStringLiteral("1.2.0.0"));
            QCOMPARE(same.notes, QStringLiteral("Sharper faces"));
            QCOMPARE(same.url, QUrl("http://127.0.0.1:8490/download/glint.deb"));
        }
        QVERIFY(serve("1.1.0.0"));
        {
            Check older(server.baseUrl(), "1.2.0.0");
            QCOMPARE(older.run(false), QStringLiteral("1.1.0.0")); // any other release is offered
            older.service.skipVersionText("1.1.0.0");
            QCOMPARE(older.service.skipVersion(), Version::fromString("1.1.0.0").toJson());
            QCOMPARE(older.run(false), QString());
            QCOMPARE(older.run(true), QStringLiteral("1.1.0.0"));
            // The skip version restored from the settings counts the same.
            Check restored(server.baseUrl(), "1.2.0.0");
            restored.service.setSkipVersion(older.service.skipVersion());
            QCOMPARE(restored.run(false), QString());
        }
        QVERIFY(serve("0.0.0.0"));
        {
            MessageCapture log("glint.update");
            Check zero(server.baseUrl(), "1.2.0.0");
            QCOMPARE(zero.run(false), QString());
            QCOMPARE(zero.run(true), QString());
            QCOMPARE(log.messages().size(), 2); // one per check
        }
    }

    void noDownloadAddressFallsBackToThePage()
    {
        LensServerProcess server;
        QVERIFY(server.start({"--update-version", "3.0.0.0"})); // no --update-url: 404 for the address
        MessageCapture log("glint.update");
        Check check(server.baseUrl(), "1.2.0.0");
        QCOMPARE(check.run(false), QStringLiteral("3.0.0.0"));
        QCOMPARE(check.url, kFallback);
        QCOMPARE(log.count("UpdateService::requestLatestVersionUrl"), 1);
    }

    // No release published is quiet; a server that is down is one warning.
    void noReleaseIsQuietAndServerDownIsOneWarning()
    {
        LensServerProcess server;
        QVERIFY(server.start()); // answers an empty version
        MessageCapture log("glint.update");
        Check check(server.baseUrl(), "1.2.0.0");
        QCOMPARE(check.run(true), QString());
        QVERIFY(log.messages().isEmpty());
        server.stop();
        QCOMPARE(check.run(false, 3000), QString());
        QCOMPARE(log.count("Can't get latest Virtual Camera verison: "), 1);
    }

    void badAnswersOfferNothingWithOneWarning_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("type");
        QTest::newRow("bad version text") << 200 << QByteArray(R"({"version": "2.0.beta", "notes": "x"})")
                                          << QByteArray("application/json");
        QTest::newRow("version too long a number")
            << 200 << QByteArray(R"({"version": "2.0.0.4294967296"})") << QByteArray("application/json");
        QTest::newRow("missing version")
            << 200 << QByteArray(R"({"notes": "x"})") << QByteArray("application/json");
        QTest::newRow("version not a text")
            << 200 << QByteArray(R"({"version": 2})") << QByteArray("application/json");
        QTest::newRow("HTML page") << 200 << QByteArray("<!DOCTYPE html><html><body>Login</body></html>")
                                   << QByteArray("text/html");
        QTest::newRow("JSON list") << 200 << QByteArray("[1,2]") << QByteArray("application/json");
        QTest::newRow("server error")
            << 500 << QByteArray(R"({"error": "boom"})") << QByteArray("application/json");
    }
    void badAnswersOfferNothingWithOneWarning()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, type);
        HttpFixture backend;
        backend.route("/vc/v1/update/latest", {status, body, type});
        backend.route("/vc/v1/update/download", 200, "{\"url\": \"http://127.0.0.1:1/x\"}");
        MessageCapture log("glint.update");
        Check check(backend.url("/vc/v1"), "1.2.0.0");
        QCOMPARE(check.run(true, 800), QString());
        QCOMPARE(log.messages().size(), 1);
        QVERIFY2(log.messages().first().startsWith("Can't get latest Virtual Camera verison: "),
                 qPrintable(log.messages().first()));
        QCOMPARE(backend.count("/vc/v1/update/download"), 0);
    }

    void downloadAddressThatIsNoWebAddressIsNotOpened()
    {
        HttpFixture backend;
        backend.route("/vc/v1/update/latest", 200, R"({"version": "9.0.0.0", "notes": ""})");
        backend.route("/vc/v1/update/download", 200, "{\"url\": \"file:///etc/passwd\"}");
        Check check(backend.url("/vc/v1"), "1.2.0.0");
        QCOMPARE(check.run(false), QStringLiteral("9.0.0.0"));
        QCOMPARE(check.url, kFallback);
    }
};

QTEST_GUILESS_MAIN(TestUpdateService)
#include "tst_updateservice.moc"
