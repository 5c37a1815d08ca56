#include "httpfixture.h"
#include "lensserverprocess.h"
#include "lenssignature.h"
#include "networklensacquirehelper.h"
#include "networklensprovider.h"
#include "networkmanager.h"
#include "testlenses.h"

#include <QDirIterator>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;
using nlohmann::json;

namespace {

// A provider over its own backend client and cache folder, with spies.
struct Rig
{
    Rig(const QString &baseUrl, const QString &key)
        : network(baseUrl, [] { return QStringLiteral("test-installation"); }),
          provider(&network, cacheDir.filePath("root/cache"), key),
          succeeded(&provider, &LensProvider::lensAcquireSuccess),
          failed(&provider, &LensProvider::lensAcquireFailure),
          downloaded(&provider, &NetworkLensProvider::lensDownloadSucceed),
          downloadFailed(&provider, &NetworkLensProvider::lensDownloadFailed)
    {
        provider.cache().load(json::object());
    }
    bool waitForOutcome()
    {
        return QTest::qWaitFor([this] { return succeeded.count() + failed.count() > 0; }, 15000);
    }
    QString failure() const { return failed.isEmpty() ? QString() : failed.last().at(1).toString(); }

    QTemporaryDir cacheDir;
    NetworkManager network;
    NetworkLensProvider provider;
    QSignalSpy succeeded, failed, downloaded, downloadFailed;
};

bool anyFileNamed(const QString &root, const QString &name)
{
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (QFileInfo(it.next()).fileName() == name)
            return true;
    }
    return false;
}

} // namespace

class TestLensAcquire : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_server.isReady());
        m_beta = TestLenses::makeLensFolder(m_lenses.path(), "beta", 20000);
        QVERIFY(m_server.import({m_beta}));
        QVERIFY(m_server.start());

        // Lenses for the fixture, signed with the server's key.
        m_gamma = TestLenses::makeLensFolder(m_lenses.path(), "gamma", 3000);
        m_gammaSignature = TestLenses::sign(m_gamma, m_server.keyPath());
        QVERIFY(!m_gammaSignature.isEmpty());
        m_gammaZip = TestLenses::zipFolder(m_gamma);
        m_fixture.reset(new HttpFixture);
        QVERIFY(m_silent.listen(QHostAddress::LocalHost));
    }

    void init() { m_fixture->reset(); }

    // A signed lens from the server unpacks to the signed files and nothing
    // else. Cached, it is reported at once, before any event is processed, so
    // no request can have been made; a stale or changed one is fetched again.
    void cachedStaleAndChangedLenses()
    {
        Rig rig(m_server.baseUrl(), m_server.publicKey());
        rig.provider.acquireLens("beta");
        QVERIFY(rig.waitForOutcome());
        QCOMPARE(rig.failure(), QString());
        QCOMPARE(rig.downloaded.count(), 1);
        const QString lensPath = rig.provider.cache().lensPath("beta");
        QCOMPARE(directoryChecksum(lensPath), directoryChecksum(m_beta));

        rig.provider.acquireLens("beta");
        QCOMPARE(rig.succeeded.count(), 2);
        QCOMPARE(rig.succeeded.last(), (QList<QVariant>{"beta", "hint_beta"}));
        QCOMPARE(rig.network.pendingCount(), 0);

        // Stale, or changed on the disk: fetched again before it is used.
        for (int round = 2; round <= 3; ++round) {
            QFile manifest(rig.provider.cache().lensPath("beta") + "/lens.json");
            if (round == 2)
                rig.provider.markLensStale("beta");
            else
                QVERIFY(manifest.open(QIODevice::Append) && manifest.write(" ") == 1);
            manifest.close();
            rig.provider.acquireLens("beta");
            QCOMPARE(rig.succeeded.count(), round);
            QVERIFY(!rig.provider.cache().contains("beta"));
            QTRY_COMPARE(rig.downloaded.count(), round);
            QCOMPARE(rig.succeeded.count(), round + 1);
        }
        QCOMPARE(directoryChecksum(rig.provider.cache().lensPath("beta")), directoryChecksum(m_beta));
        QVERIFY(rig.failed.isEmpty());
    }

    void failuresCarryTheirTexts_data()
    {
        QTest::addColumn<QByteArray>("link");
        QTest::addColumn<int>("linkStatus");
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<int>("archiveStatus");
        QTest::addColumn<QString>("expected");
        const QByteArray link =
            QByteArray::fromStdString(unlockAnswer("gamma", m_gammaSignature, "h").dump());
        const QByteArray otherIdSignature = QByteArray::fromStdString(
            unlockAnswer("gamma", TestLenses::sign(m_beta, m_server.keyPath()), "h").dump());

        QTest::newRow("link garbage")
            << QByteArray("<html>") << 200 << m_gammaZip << 200 << "Failed to parse lens archive link";
        QTest::newRow("no lens_url") << QByteArray("{\"signature\":\"x\"}") << 200 << m_gammaZip << 200
                                     << "Failed to parse lens archive link: No 'lens_url' in JSON";
        QTest::newRow("archive garbage")
            << link << 200 << QByteArray("PK\x03\x04 nothing") << 200 << "Failed to extract lens archive";
        QTest::newRow("another lens's signature") << otherIdSignature << 200 << m_gammaZip << 200
                                                  << "Checksum doesn't match for lens archive: gamma";
        const auto linkTo = [&](const std::string &url) {
            json answer = unlockAnswer("gamma", m_gammaSignature, "h");
            answer["lens_url"] = url;
            return QByteArray::fromStdString(answer.dump());
        };
        QTest::newRow("lens_url file") << linkTo("file:///etc/passwd") << 200 << m_gammaZip << 200
                                       << "Failed to parse lens archive link: *";
        QTest::newRow("lens_url plain http elsewhere")
            << linkTo("http://0.0.0.0:1/gamma.zip") << 200 << m_gammaZip << 200
            << "Failed to parse lens archive link: *";
        // A server that keeps the connection open and never answers: given up
        // after the acquisition's overall deadline.
        QTest::newRow("archive never comes")
            << linkTo(QString("http://127.0.0.1:%1/gamma.zip").arg(m_silent.serverPort()).toStdString())
            << 200 << m_gammaZip << 200 << "Failed to download lens archive: no answer within*";

        // Nothing may be written outside <cache>/<lens id>.
        using Entries = QList<TestLenses::ZipEntry>;
        const TestLenses::ZipEntry manifest{"lens.json", "{}"};
        const auto unsafe = [&](const char *name, const Entries &entries) {
            QTest::newRow(name) << link << 200 << TestLenses::zip(Entries{manifest} + entries) << 200
                                << "Failed to extract lens archive";
        };
        unsafe("parent", {{"../escape.txt", "x"}});
        unsafe("far up", {{"a/../../../../escape.txt", "x"}});
        unsafe("absolute", {{m_escape + "/escape.txt", "x"}});
        unsafe("backslashes", {{"..\\..\\escape.txt", "x"}});
        unsafe("link out", {{"out", "../../..", true}, {"out/escape.txt", "x"}});
        unsafe("link alone", {{"passwd", "/etc/passwd", true}});
        // 64 MiB of zeros in well under 1 MiB, unpacked with a limit of 8 MiB.
        unsafe("bomb", {{"escape.txt", QByteArray(64 << 20, '\0')}});
    }

    void failuresCarryTheirTexts()
    {
        QFETCH(QByteArray, link);
        QFETCH(int, linkStatus);
        QFETCH(QByteArray, archive);
        QFETCH(int, archiveStatus);
        QFETCH(QString, expected);
        m_fixture->route("/vc/v1/explorer/unlock", linkStatus, link);
        m_fixture->route("/archives/gamma.zip", archiveStatus, archive);
        Rig rig(m_fixture->url("/vc/v1"), m_server.publicKey());
        rig.provider.acquireHelper()->setMaxUnpackedBytes(8 << 20);
        rig.provider.acquireHelper()->setDeadline(1500);
        rig.provider.acquireLens("gamma");
        QVERIFY(rig.waitForOutcome());
        const bool matches = expected.endsWith('*') ? rig.failure().startsWith(expected.chopped(1))
                                                    : rig.failure() == expected;
        QVERIFY2(matches, qPrintable(rig.failure()));
        QCOMPARE(rig.succeeded.count(), 0);
        QCOMPARE(rig.downloadFailed.count(), 1);
        QVERIFY(!rig.provider.cache().contains("gamma"));
        QVERIFY(!anyFileNamed(rig.cacheDir.path(), "escape.txt") &&
                !anyFileNamed(rig.cacheDir.path(), "passwd"));
        QVERIFY(!QFileInfo::exists(m_escape));
        // A refused lens leaves no folder behind, not even an empty one.
        QVERIFY(!QFileInfo::exists(rig.provider.cache().lensDirectory("gamma")));
    }

    // Nothing may be written outside <cache>/<lens id>.
    void badLensIdsAreRefusedBeforeAnyPath()
    {
        Rig rig(m_fixture->url("/vc/v1"), m_server.publicKey());
        for (const QString id : {"", "..", "../gamma", "a/b", "-1", "/etc"}) {
            rig.provider.acquireLens(id);
            QCOMPARE(rig.failed.count(), 1);
            QCOMPARE(rig.failed.takeFirst().at(0).toString(), id);
        }
        QTest::qWait(50);
        QVERIFY(m_fixture->received().isEmpty());
        QCOMPARE(QDir(rig.provider.cache().rootPath()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
                 QStringList());
    }

    // The answer for an acquisition that was replaced arrives late and
    // changes nothing.
    void abandonedAcquisitionsStayAbandoned()
    {
        const QByteArray slowLink = QByteArray::fromStdString(unlockAnswer("slow", "c2ln", "").dump());
        HttpFixture::Response slow(200, slowLink);
        slow.delayMs = 400;
        m_fixture->route("/vc/v1/explorer/unlock", slow);
        Rig rig(m_fixture->url("/vc/v1"), m_server.publicKey());
        rig.provider.acquireLens("slow");
        QTest::qWait(100);
        m_fixture->route("/vc/v1/explorer/unlock", 200,
                         QByteArray::fromStdString(unlockAnswer("gamma", m_gammaSignature, "g").dump()));
        m_fixture->route("/archives/gamma.zip", 200, m_gammaZip);
        rig.provider.acquireLens("gamma");
        QVERIFY(rig.waitForOutcome());
        QTest::qWait(600);
        QCOMPARE(rig.succeeded.count(), 1);
        QCOMPARE(rig.succeeded.first().at(0).toString(), QString("gamma"));
        QVERIFY(rig.failed.isEmpty());
        QCOMPARE(m_fixture->count("/archives/slow.zip"), 0);
    }

private:
    json unlockAnswer(const QString &id, const QString &signature, const QString &hint) const
    {
        return {{"lens_url", m_fixture->url("/archives/" + id + ".zip").toStdString()},
                {"signature", signature.toStdString()},
                {"hint_id", hint.toStdString()}};
    }

    Rig fixtureRig(const QString &id, const json &answer, const QByteArray &archive)
    {
        m_fixture->route("/vc/v1/explorer/unlock", 200, QByteArray::fromStdString(answer.dump()));
        m_fixture->route(("/archives/" + id + ".zip").toUtf8(), 200, archive);
        return Rig(m_fixture->url("/vc/v1"), m_server.publicKey());
    }

    LensServerProcess m_server;
    QTemporaryDir m_lenses;
    QString m_beta;
    QString m_gamma;
    QString m_gammaSignature;
    QByteArray m_gammaZip;
    const QString m_escape =
        QDir::tempPath() + "/glint-escape-" + QString::number(QCoreApplication::applicationPid());
    QScopedPointer<HttpFixture> m_fixture;
    QTcpServer m_silent;
};

QTEST_GUILESS_MAIN(TestLensAcquire)
#include "tst_lensacquire.moc"
