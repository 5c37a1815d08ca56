#include "networkdiskcache.h"
#include "qmlnetworkaccessmanagerfactory.h"

#include <QDir>
#include <QNetworkReply>
#include <QQmlEngine>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using namespace VCam;

namespace {

// Serves one small image that the server forbids anyone to store, and
// counts how often it was asked for.
class NoStoreImageServer : public QObject
{
public:
    NoStoreImageServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
        });
    }

    QUrl url(const QString &path) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path));
    }
    int requests = 0;
    static QByteArray body() { return QByteArray("\x89PNG\r\n\x1a\n-not-really-an-image", 28); }

private:
    void answer(QTcpSocket *socket)
    {
        m_buffer[socket] += socket->readAll();
        if (!m_buffer[socket].contains("\r\n\r\n"))
            return;
        m_buffer.remove(socket);
        ++requests;
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n"
                      "Cache-Control: no-store\r\n"
                      "Content-Length: " +
                      QByteArray::number(body().size()) + "\r\n\r\n" + body());
    }

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffer;
};

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
        QCOMPARE(cache->maximumCacheSize(), qint64(52428800));
        QCOMPARE(QDir(cache->cacheDirectory()).absolutePath(), QDir(folder).absolutePath());
    }

    void imageIsFetchedOnceEvenWhenStoringIsForbidden()
    {
        NoStoreImageServer server;
        QmlNetworkAccessManagerFactory factory;
        std::unique_ptr<QNetworkAccessManager> manager(factory.create(nullptr));
        bool fromCache = true;
        QCOMPARE(fetch(manager.get(), server.url("/icon.png"), &fromCache), NoStoreImageServer::body());
        QVERIFY(!fromCache);
        QCOMPARE(fetch(manager.get(), server.url("/icon.png"), &fromCache), NoStoreImageServer::body());
        QVERIFY(fromCache);
        QCOMPARE(server.requests, 1);
        QCOMPARE(fetch(manager.get(), server.url("/other.png"), &fromCache), NoStoreImageServer::body());
        QCOMPARE(server.requests, 2);

        // A plain manager over the same server would refetch: the override
        // is what keeps the copy.
        QNetworkAccessManager plain;
        auto *cache = new QNetworkDiskCache(&plain);
        QTemporaryDir dir;
        cache->setCacheDirectory(dir.path());
        plain.setCache(cache);
        fetch(&plain, server.url("/icon.png"), &fromCache);
        fetch(&plain, server.url("/icon.png"), &fromCache);
        QCOMPARE(server.requests, 4);
    }
};

QTEST_MAIN(TestNetworkCache)
#include "tst_networkcache.moc"
