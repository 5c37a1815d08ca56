// Bundled lenses get no free pass: a copy of the build's bundle with a
// tampered archive or a hostile index is refused the way a download would
// be, and nothing of a refused lens stays in the cache.
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <bundledlenses.h>
#include <lenscache.h>
#include <lenssignature.h>
#include <networklensacquirehelper.h>
#include <networkmanager.h>

using namespace VCam;

namespace {
const QString kBuilt = QStringLiteral(GLINT_BUNDLED_DIR);
}

class TestBundledLenses : public QObject
{
    Q_OBJECT

    // Acquires a lens with the backend out of reach; the error text, empty
    // on success.
    QString acquire(const BundledLenses &bundled, const QString &cacheRoot, const LensId &lensId)
    {
        NetworkManager network(QStringLiteral("http://127.0.0.1:9/vc/v1"),
                               [] { return QStringLiteral("test"); });
        LensCache cache(cacheRoot, defaultLensVerificationKey());
        NetworkLensAcquireHelper helper(&network, &cache);
        helper.setBundledLenses(&bundled);
        QSignalSpy done(&helper, &NetworkLensAcquireHelper::lensAcquireSucceed);
        QSignalSpy failed(&helper, &NetworkLensAcquireHelper::lensAcquireFailed);
        helper.acquire(lensId);
        if (!QTest::qWaitFor([&] { return !done.isEmpty() || !failed.isEmpty(); }, 15000))
            return QStringLiteral("no answer");
        return failed.isEmpty() ? QString() : failed.first().at(1).toString();
    }

private slots:
    // The built bundle offers every sample lens and installs; a copy with a
    // flipped byte in an archive does not.
    void aTamperedArchiveIsRefused()
    {
        QTemporaryDir dir;
        const BundledLenses built(kBuilt);
        const int samples =
            QDir(QStringLiteral(GLINT_SAMPLE_LENSES)).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
        QCOMPARE(int(built.lenses().size()), samples);
        QCOMPARE(built.lenses().front().lensStatus, BundledLenses::kStatus);
        QCOMPARE(acquire(built, dir.filePath("good"), "confetti"), QString());

        QDir().mkpath(dir.filePath("bundle"));
        for (const QString &name : QDir(kBuilt).entryList(QDir::Files))
            QVERIFY(QFile::copy(kBuilt + "/" + name, dir.filePath("bundle/" + name)));
        QFile archive(dir.filePath("bundle/confetti.zip"));
        QVERIFY(archive.open(QIODevice::ReadWrite) && archive.seek(archive.size() / 2));
        const char middle = archive.peek(1).at(0);
        archive.putChar(char(middle ^ 0x5a));
        archive.close();
        const BundledLenses bundled(dir.filePath("bundle"));
        QVERIFY2(!acquire(bundled, dir.filePath("cache"), "confetti").isEmpty(),
                 "a tampered archive was installed");
        QVERIFY(!QFile::exists(dir.filePath("cache/confetti/lens/lens.json")));
    }

    void hostileIndexes_data()
    {
        QTest::addColumn<QByteArray>("index");
        QTest::addColumn<int>("lenses");
        QTest::newRow("not JSON") << QByteArray("{\"lenses\": [") << 0;
        QTest::newRow("no list") << QByteArray("{\"lenses\": 3}") << 0;
        QTest::newRow("archive outside the folder")
            << QByteArray(R"({"lenses": [{"lens_id": "a", "archive": "../a.zip", "signature": "x"}]})") << 0;
        QTest::newRow("bad id")
            << QByteArray(R"({"lenses": [{"lens_id": "../a", "archive": "a.zip", "signature": "x"}]})") << 0;
        QTest::newRow("twice the same id")
            << QByteArray(R"({"lenses": [{"lens_id": "a", "archive": "a.zip", "signature": "x"},
                                         {"lens_id": "a", "archive": "b.zip", "signature": "y"}]})")
            << 1;
        QTest::newRow("too large") << QByteArray(BundledLenses::kMaxIndexBytes + 1, ' ') << 0;
    }

    void hostileIndexes()
    {
        QFETCH(QByteArray, index);
        QFETCH(int, lenses);
        QTemporaryDir dir;
        QFile file(dir.filePath("index.json"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(index) == index.size());
        file.close();
        const BundledLenses bundled(dir.path());
        QCOMPARE(int(bundled.lenses().size()), lenses);
        // A listed lens whose archive is missing yields no bytes.
        if (lenses > 0)
            QVERIFY(bundled.archive("a").isNull());
    }
};

QTEST_GUILESS_MAIN(TestBundledLenses)
#include "tst_bundledlenses.moc"
