#include "lenscache.h"
#include "lensserverprocess.h"
#include "testlenses.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;
using nlohmann::json;

class TestLensCache : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_publicKey = LensServerProcess::runPacker({"keygen", m_keys.filePath("key.pem")}).trimmed();
        QCOMPARE(m_publicKey.size(), 160);
    }

    void init()
    {
        m_root.reset(new QTemporaryDir);
        m_signatures.clear();
    }

    // An empty or unusable root keeps nothing rather than using "/" or the
    // working folder.
    void noRootNoPaths()
    {
        LensCache cache(QString(), m_publicKey);
        cache.load(json::object());
        QVERIFY(cache.lensPath("abc").isEmpty());
        QVERIFY(!cache.add("abc", "sig", ""));
        cache.load({{"cachePath", "/proc/not-a-place/lenses"}});
        QVERIFY(cache.lensDirectory("abc").isEmpty());
    }

    // Least recently used lenses go first, the active lens never.
    void evictionKeepsTheActiveLens()
    {
        LensCache cache(m_root->path(), m_publicKey);
        cache.setLimit(3 * LensCache::kMebibyte + LensCache::kMebibyte / 2);
        for (const char *id : {"a", "b", "c"}) {
            placeLens(cache, id, LensCache::kMebibyte);
            QVERIFY(cache.add(id, m_signatures[id], ""));
        }
        cache.touch("a");
        QCOMPARE(cache.lensIds(), (QStringList{"b", "c", "a"}));
        cache.setActiveLens("b");
        placeLens(cache, "d", LensCache::kMebibyte);
        QVERIFY(cache.add("d", m_signatures["d"], ""));
        QCOMPARE(cache.lensIds(), (QStringList{"b", "a", "d"}));
        QVERIFY(!QFileInfo::exists(cache.lensDirectory("c")));
        QVERIFY(cache.totalSize() <= cache.limit());

        cache.evict(0);
        QCOMPARE(cache.lensIds(), QStringList{"b"});
        QVERIFY(QFileInfo::exists(cache.lensPath("b")));
        QCOMPARE(cache.totalSize(), LensCache::folderSize(cache.lensPath("b")));
    }

    void cacheSizeIsSavedInWholeMebibytes_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("cacheSize");
        QTest::newRow("default") << LensCache::kDefaultLimitBytes << 200;
        QTest::newRow("exact") << qint64(209715200) << 200;
        QTest::newRow("just below a mebibyte") << qint64(1048575) << 0;
    }

    void cacheSizeIsSavedInWholeMebibytes()
    {
        QFETCH(qint64, limit);
        QFETCH(int, cacheSize);
        LensCache cache(m_root->path(), m_publicKey);
        cache.setLimit(limit);
        QCOMPARE(cache.save()["cacheSize"].get<int>(), cacheSize);
    }

    // Index and folders are brought into agreement at load; the saved form
    // keeps the order of use.
    void loadReconcilesFoldersWithTheIndex()
    {
        LensCache first(m_root->path(), m_publicKey);
        for (const char *id : {"kept", "touched", "orphan"})
            placeLens(first, id, 0);
        QDir().mkpath(m_root->path() + "/notes");
        QDir().mkpath(m_root->path() + "/no-lens-inside");
        QDir().mkpath(m_root->path() + "/queued/lens");
        const json settings = {
            {"cachePath", m_root->path().toStdString()},
            {"cacheSize", 50},
            {"cachedInfo",
             {{{"lensId", "touched"}, {"signature", m_signatures["touched"].toStdString()}, {"hintId", "h1"}},
              {{"lensId", "kept"}, {"signature", m_signatures["kept"].toStdString()}, {"hintId", ""}},
              {{"lensId", "gone"}, {"signature", "c2ln"}, {"hintId", ""}},
              {{"lensId", "../escape"}, {"signature", "c2ln"}, {"hintId", ""}},
              "not an object"}},
            {"clearingQueue", {{{"lensId", "queued"}}}}};

        LensCache cache(QString(), m_publicKey);
        cache.load(settings);
        QCOMPARE(cache.lensIds(), (QStringList{"touched", "kept"}));
        QVERIFY(!QFileInfo::exists(m_root->path() + "/orphan"));
        QVERIFY(!QFileInfo::exists(m_root->path() + "/queued"));
        QVERIFY(QFileInfo::exists(m_root->path() + "/notes"));
        QVERIFY(QFileInfo::exists(m_root->path() + "/no-lens-inside"));
        QVERIFY(cache.clearingQueue().isEmpty());
        QCOMPARE(cache.totalSize(), LensCache::folderSize(cache.lensPath("kept")) +
                                        LensCache::folderSize(cache.lensPath("touched")));
        QVERIFY(cache.verify("kept", true));
        QCOMPARE(cache.hintId("touched"), "h1");

        cache.touch("touched");
        const json saved = cache.save();
        QCOMPARE(saved["cacheSize"].get<int>(), 50);
        QCOMPARE(saved["cachePath"].get<std::string>(), m_root->path().toStdString());
        QCOMPARE(saved["cachedInfo"].size(), size_t(2));
        QCOMPARE(saved["cachedInfo"][0]["lensId"].get<std::string>(), "kept");
        QCOMPARE(saved["cachedInfo"][1]["lensId"].get<std::string>(), "touched");
        QCOMPARE(saved["cachedInfo"][1]["hintId"].get<std::string>(), "h1");

        LensCache again(QString(), m_publicKey);
        again.load(saved);
        QCOMPARE(again.lensIds(), (QStringList{"kept", "touched"}));
        QCOMPARE(again.save(), saved);
    }

private:
    // A signed lens folder at <root>/<id>/lens with extra bytes of data.
    void placeLens(const LensCache &cache, const QString &id, qint64 extraBytes)
    {
        QTemporaryDir scratch;
        const QString made = TestLenses::makeLensFolder(scratch.path(), id, extraBytes);
        m_signatures[id] = TestLenses::sign(made, m_keys.filePath("key.pem"));
        QVERIFY(!m_signatures[id].isEmpty());
        QDir().mkpath(m_root->path() + "/" + id);
        QVERIFY(QDir().rename(made, m_root->path() + "/" + id + "/lens"));
        Q_UNUSED(cache);
    }

    QTemporaryDir m_keys;
    QString m_publicKey;
    QScopedPointer<QTemporaryDir> m_root;
    QHash<QString, QString> m_signatures;
};

QTEST_GUILESS_MAIN(TestLensCache)
#include "tst_lenscache.moc"
