#include "httpfixture.h"
#include "networkdiskcache.h"
#include "qmlnetworkaccessmanagerfactory.h"

#include <QDir>
#include <QNetworkReply>
#include <QQmlEngine>
#include <QStandardPaths>
#include <QtTest>

using namespace VCam;

namespace {

const QByteArray kImage("\x89PNG\r\n\x1a\n-not-really-an-image", 28);

// One small image that the server forbids anyone to store. The fixture
// writes the content type as given, so the cache header rides along.
HttpFixture::Response noStoreImage()
{
    HttpFixture::Response response{200, kImage};
    response.contentType = "image/png\r\nCache-Control: no-store";
    return response;
}

QByteArray fetch(QNetworkAccessManager *manager, const QUrl &url, bool *fromCache)
{
    QNetworkReply *reply = manager->get(QNetworkRequest(url));
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(5000))
        return {};
    *fromCache = reply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool();
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return body;
}

} // namespace

class TestNetworkCache : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("tst_networkcache"));
        QStandardPaths::setTestModeEnabled(true);
        QDir(QmlNetworkAccessManagerFactory::cacheFolder()).removeRecursively();
    }

    void cleanupTestCase() { QDir(QmlNetworkAccessManagerFactory::cacheFolder()).removeRecursively(); }

    void folderOfAnEarlierRunIsWiped()
    {
        const QString folder = QmlNetworkAccessManagerFactory::cacheFolder();
        QVERIFY(folder.endsWith("/qml_network_cache"));
        QVERIFY(QDir().mkpath(folder + "/data8/stale"));
        QFile leftover(folder + "/data8/stale/entry.d");
        QVERIFY(leftover.open(QIODevice::WriteOnly));
        leftover.write("from the last run");
        leftover.close();

        QmlNetworkAccessManagerFactory factory;
        QQmlEngine engine;
        engine.setNetworkAccessManagerFactory(&factory);
        QVERIFY(QFile::exists(leftover.fileName())); // nothing asked for a manager yet
        QNetworkAccessManager *manager = engine.networkAccessManager();
        QVERIFY(manager);
        QVERIFY(!QFile::exists(leftover.fileName()));
        auto *cache = qobject_cast<QNetworkDiskCache *>(manager->cache());
        QVERIFY(cache);
        QCOMPARE(QDir(cache->cacheDirectory()).absolutePath(), QDir(folder).absolutePath());
    }

    void imageIsFetchedOnceEvenWhenStoringIsForbidden()
    {
        HttpFixture server;
        server.route("/icon.png", noStoreImage());
        server.route("/other.png", noStoreImage());
        QmlNetworkAccessManagerFactory factory;
        std::unique_ptr<QNetworkAccessManager> manager(factory.create(nullptr));
        bool fromCache = true;
        QCOMPARE(fetch(manager.get(), server.url("/icon.png"), &fromCache), kImage);
        QVERIFY(!fromCache);
        QCOMPARE(fetch(manager.get(), server.url("/icon.png"), &fromCache), kImage);
        QVERIFY(fromCache);
        QCOMPARE(server.received().size(), 1);
        QCOMPARE(fetch(manager.get(), server.url("/other.png"), &fromCache), kImage);
        QCOMPARE(server.received().size(), 2);
    }
};

QTEST_MAIN(TestNetworkCache)
#include "tst_networkcache.moc"
