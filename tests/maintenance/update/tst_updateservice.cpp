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
    Check(const QString &baseUrl, const QString &installed = "1.2.0.0")
        : network(baseUrl, [] { return QStringLiteral("update-test"); }),
          service(&network, Version::fromString(installed), kFallback)
    {}

    QString run(bool userRequested, int settleMs = 1500)
    {
        QSignalSpy offers(&service, &IUpdateService::latestVersionAvailable);
        QSignalSpy urls(&service, &IUpdateService::latestVersionUrlAvailable);
        service.checkForUpdates(userRequested);
        if (!QTest::qWaitFor([&] { return !offers.isEmpty(); }, settleMs))
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
    void offersFollowTheInstalledAndSkippedVersions()
    {
        LensServerProcess server;
        const auto serve = [&](const QString &version) {
            server.stop();
            return server.start({"--update-version", version, "--update-notes", "Sharper faces",
                                 "--update-url", "http://127.0.0.1:8490/download/glint.deb"});
        };
        QVERIFY(serve("1.2.0.0"));
        Check same(server.baseUrl());
        QCOMPARE(same.run(false), QString()); // what is installed is not offered
        QCOMPARE(same.run(true), QStringLiteral("1.2.0.0"));
        QCOMPARE(same.notes, QStringLiteral("Sharper faces"));
        QCOMPARE(same.url, QUrl("http://127.0.0.1:8490/download/glint.deb"));

        QVERIFY(serve("1.1.0.0"));
        Check older(server.baseUrl());
        QCOMPARE(older.run(false), QStringLiteral("1.1.0.0")); // any other release is offered
        older.service.skipVersionText("1.1.0.0");
        QCOMPARE(older.run(false), QString());
    }

    // Without a usable download address the notice points to the page.
    void downloadAddressFallsBackToThePage()
    {
        HttpFixture backend;
        backend.route("/vc/v1/update/latest", 200, R"({"version": "9.0.0.0", "notes": ""})");
        backend.route("/vc/v1/update/download", 200, "{\"url\": \"file:///etc/passwd\"}");
        Check local(backend.url("/vc/v1"));
        QCOMPARE(local.run(false), QStringLiteral("9.0.0.0"));
        QCOMPARE(local.url, kFallback);
    }

    void badAnswersOfferNothingWithOneWarning_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("bad version text") << 200 << QByteArray(R"({"version": "2.0.beta", "notes": "x"})");
        QTest::newRow("version too long a number") << 200 << QByteArray(R"({"version": "2.0.0.4294967296"})");
        QTest::newRow("missing version") << 200 << QByteArray(R"({"notes": "x"})");
        QTest::newRow("HTML page") << 200 << QByteArray("<!DOCTYPE html><html><body>Login</body></html>");
        QTest::newRow("server error") << 500 << QByteArray(R"({"error": "boom"})");
    }
    void badAnswersOfferNothingWithOneWarning()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        HttpFixture backend;
        backend.route("/vc/v1/update/latest", status, body);
        backend.route("/vc/v1/update/download", 200, "{\"url\": \"http://127.0.0.1:1/x\"}");
        MessageCapture log("glint.update");
        Check check(backend.url("/vc/v1"));
        QCOMPARE(check.run(true, 800), QString());
        QCOMPARE(log.messages().size(), 1);
        QVERIFY2(log.messages().first().startsWith("Can't get latest Virtual Camera verison: "),
                 qPrintable(log.messages().first()));
        QCOMPARE(backend.count("/vc/v1/update/download"), 0);
    }
};

QTEST_GUILESS_MAIN(TestUpdateService)
#include "tst_updateservice.moc"
