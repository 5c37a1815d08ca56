// The redirect server against hostile requests, with a real listening
// server and real files, and the token record.
#include "signinbrowser.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <httpserver.h>
#include <oauthtokens.h>

using namespace VCam;

class RedirectServerTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_bundle;

private slots:
    // A copy of the bundle with a secret beside it and a link leading out.
    void initTestCase()
    {
        m_bundle = m_dir.filePath(QStringLiteral("WebResources.bundle"));
        QVERIFY(m_dir.isValid() && QDir().mkpath(m_bundle + QStringLiteral("/sub")));
        const QDir source(QStringLiteral(GLINT_WEB_RESOURCES_DIR));
        for (const QString &name : source.entryList(QDir::Files))
            QVERIFY(QFile::copy(source.filePath(name), m_bundle + QLatin1Char('/') + name));
        QFile secret(m_dir.filePath(QStringLiteral("secret.txt")));
        QVERIFY(secret.open(QIODevice::WriteOnly) && secret.write("secret") == 6);
        secret.close();
        QVERIFY(QFile::copy(secret.fileName(), m_bundle + QStringLiteral("/sub/inner.txt")));
        QVERIFY(QFile::link(secret.fileName(), m_bundle + QStringLiteral("/link.txt")));
    }

    void servesOnlyBundleFiles_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("contentType"); // empty: nothing is sent
        QTest::newRow("style sheet") << QByteArray("GET /style.css HTTP/1.1") << QByteArray("text/css");
        QTest::newRow("page with query")
            << QByteArray("GET /plugin_is_ready.html?x=1 HTTP/1.1") << QByteArray("text/html");
        for (const char *refused :
             {"GET /favicon.ico HTTP/1.1", "GET /../secret.txt HTTP/1.1", "GET /sub/../style.css HTTP/1.1",
              "GET /%2e%2e/secret.txt HTTP/1.1", "GET /..%2fsecret.txt HTTP/1.1",
              "GET /..\\secret.txt HTTP/1.1", "GET http://localhost:8492/style.css HTTP/1.1",
              "GET //etc/passwd HTTP/1.1", "GET /link.txt HTTP/1.1", "GET /sub HTTP/1.1",
              "POST /style.css HTTP/1.1", "get /style.css HTTP/1.1", " GET /style.css HTTP/1.1", "GET"})
            QTest::newRow(refused) << QByteArray(refused) << QByteArray();
        QTest::newRow("binary") << QByteArray("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\n", 12)
                                << QByteArray();
    }
    void servesOnlyBundleFiles()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, contentType);
        HttpServer server{WebResources(m_bundle)};
        QVERIFY(server.startListen());
        BrowserTab tab(HttpServer::kPort, request + "\r\nHost: localhost:8492\r\n\r\n");
        QVERIFY(tab.waitClosed(5000));
        if (contentType.isEmpty()) {
            QCOMPARE(tab.answer(), QByteArray());
            return;
        }
        QVERIFY(
            tab.answer().startsWith("HTTP/1.1 200 OK\nContent-Type: " + contentType + "; charset=utf-8\n"));
        QVERIFY(!tab.body().contains("secret") && !tab.body().isEmpty());
    }

    // Overlong request lines, too many connections and silent clients cost a
    // bounded amount and leave the server answering.
    void boundsHostileClients()
    {
        HttpServer server{WebResources(m_bundle)};
        QVERIFY(server.startListen());
        BrowserTab overlong(HttpServer::kPort, "GET /" + QByteArray(HttpServer::kMaxRequestBytes + 10, 'a'));
        QVERIFY(overlong.waitClosed(5000) && overlong.answer().isEmpty());
        std::vector<std::unique_ptr<BrowserTab>> idle;
        for (int i = 0; i < HttpServer::kMaxConnections + 5; ++i)
            idle.push_back(std::make_unique<BrowserTab>(HttpServer::kPort, QByteArray()));
        QTRY_VERIFY(std::all_of(idle.begin(), idle.end(), [](const auto &tab) { return tab->connected(); }));
        QTest::qWait(300);
        QCOMPARE(std::count_if(idle.begin(), idle.end(), [](const auto &tab) { return tab->isClosed(); }), 5);
        idle.clear();
        QTRY_COMPARE(server.connectionCount(), 0);
        BrowserTab page(HttpServer::kPort, "GET /style.css HTTP/1.1\r\n\r\n");
        QVERIFY(page.waitClosed(5000) && page.answer().startsWith("HTTP/1.1 200 OK"));
    }

    // The record as Twitch's token answer and the credential store give it.
    void tokenRecord()
    {
        OAuthTokens tokens;
        QVERIFY(tokens.fromJson(
            {{"issued_at", 1000}, {"expires_in", 3600.9}, {"expires_at", 99}, {"access_token", "a"}}));
        QCOMPARE(tokens.expiresAt, 4600); // "expires_in" wins and is truncated
        // An absent token keeps the old one; without an expiry the record is
        // refused and left empty.
        QVERIFY(tokens.fromJson({{"expires_at", 5000}, {"refresh_token", "r"}}));
        QCOMPARE(tokens.accessToken, QStringLiteral("a"));
        QVERIFY(!tokens.fromJson({{"access_token", "a"}, {"refresh_token", "r"}}));
        QCOMPARE(tokens.toJson(), OAuthTokens().toJson());
        // Refreshed inside the margin before expiry, with something to
        // refresh with.
        tokens.refreshToken = QStringLiteral("r");
        tokens.expiresAt = 1000 + OAuthTokens::kRefreshMarginSecs;
        QVERIFY(!tokens.needsRefreshAt(1000) && tokens.needsRefreshAt(1001));
        tokens.refreshToken.clear();
        QVERIFY(!tokens.needsRefreshAt(1001));
    }
};

QTEST_MAIN(RedirectServerTest)
#include "tst_redirectserver.moc"
