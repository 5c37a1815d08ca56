#include "lenscache.h"
#include "lensserverprocess.h"
#include "testlenses.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

Q_DECLARE_METATYPE(nlohmann::json)

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

        cache.evict(0);
        QCOMPARE(cache.lensIds(), QStringList{"b"});
    }

    // Index and folders are brought into agreement at load; the saved form
    // keeps the order of use.
    void loadReconcilesFoldersWithTheIndex()
    {
        LensCache first(m_root->path(), m_publicKey);
        for (const char *id : {"kept", "touched", "orphan"})
            placeLens(first, id, 0);
        QDir().mkpath(m_root->path() + "/queued/lens"); // named like a lens, but not the cache's
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
        QVERIFY(QFileInfo::exists(m_root->path() + "/queued/lens"));
        QVERIFY(cache.clearingQueue().isEmpty());
        QCOMPARE(cache.hintId("touched"), "h1");
        QCOMPARE(cache.limit(), 50 * LensCache::kMebibyte);
    }

    // A folder full of a user's files, some named like lens folders, given as
    // the cache folder through the settings and through the settings page:
    // refused, and after loading, clearing, evicting and changing folders
    // every file is still there.
    void userFolderIsNeverEmptied()
    {
        QTemporaryDir home;
        const QString user = home.filePath("Documents");
        writeFile(user + "/report.txt", "quarterly figures");
        writeFile(user + "/Photos/lens/holiday.jpg", "jpeg bytes");
        writeFile(user + "/abc/lens/manifest.json", "{}");
        writeFile(user + "/.hidden", "secret");
        const auto before = snapshot(user);

        const json settings = {{"cachePath", user.toStdString()},
                               {"cacheSize", int64_t(1) << 43},
                               {"cachedInfo",
                                {{{"lensId", "Photos"}, {"signature", "c2ln"}, {"hintId", ""}},
                                 {{"lensId", "abc"}, {"signature", "c2ln"}, {"hintId", ""}}}},
                               {"clearingQueue", {"Photos", "abc"}}};
        LensCache cache(m_root->path() + "/default", m_publicKey);
        cache.load(settings);
        QVERIFY2(cache.problem().contains("not empty"), qPrintable(cache.problem()));
        QCOMPARE(cache.rootPath(), QDir(m_root->path() + "/default").absolutePath());
        QVERIFY(cache.lensIds().isEmpty());

        placeLens(cache, "own", 0);
        QVERIFY(cache.add("own", m_signatures["own"], ""));
        QVERIFY(!cache.changeRoot(user));
        QVERIFY(cache.problem().contains("not empty"));
        QVERIFY(cache.verify("own", false)); // still where it was
        cache.evict(0);
        QVERIFY(!QFileInfo::exists(cache.rootPath() + "/own")); // the cache's own lens goes
        cache.remove("abc");
        QCOMPARE(snapshot(user), before);

        // The user's files inside a real cache folder are left alone too.
        writeFile(cache.rootPath() + "/mine/lens/notes.txt", "mine");
        LensCache reloaded(QString(), m_publicKey);
        reloaded.load(cache.save());
        reloaded.evict(0);
        QVERIFY(QFileInfo::exists(cache.rootPath() + "/mine/lens/notes.txt"));

        // Moving to an empty folder takes the cache's own lenses along and
        // leaves the old folder's other content where it was.
        placeLens(reloaded, "moved", 0);
        QVERIFY(reloaded.add("moved", m_signatures["moved"], ""));
        const QString fresh = home.filePath("fresh");
        QVERIFY(QDir().mkpath(fresh));
        QVERIFY(reloaded.changeRoot(fresh));
        QVERIFY(reloaded.verify("moved", false));
        QVERIFY(QFileInfo::exists(fresh + "/moved/lens"));
        QVERIFY(!QFileInfo::exists(m_root->path() + "/default/moved"));
        QVERIFY(QFileInfo::exists(m_root->path() + "/default/mine/lens/notes.txt"));
        QCOMPARE(snapshot(user), before);
    }

    void numbersFromSettingsAreClamped_data()
    {
        QTest::addColumn<json>("cacheSize");
        QTest::addColumn<qint64>("limit");
        QTest::newRow("largest unsigned")
            << json(UINT64_MAX) << LensCache::kMaxLimitMebibytes * LensCache::kMebibyte;
        QTest::newRow("negative") << json(-5) << LensCache::kDefaultLimitBytes;
        QTest::newRow("zero") << json(0) << qint64(0);
    }
    void numbersFromSettingsAreClamped()
    {
        QFETCH(json, cacheSize);
        QFETCH(qint64, limit);
        LensCache cache(m_root->path(), m_publicKey);
        cache.load({{"cacheSize", cacheSize}});
        QCOMPARE(cache.limit(), limit);
        cache.setLimit(LensCache::kMebibyte - 1); // saved in whole mebibytes, rounded down
        QCOMPARE(cache.save()["cacheSize"].get<int>(), 0);
    }

private:
    // A signed lens folder at <root>/<id>/lens with extra bytes of data.
    // The folder is claimed through the cache, as the acquisition does.
    void placeLens(LensCache &cache, const QString &id, qint64 extraBytes)
    {
        QTemporaryDir scratch;
        const QString made = TestLenses::makeLensFolder(scratch.path(), id, extraBytes);
        m_signatures[id] = TestLenses::sign(made, m_keys.filePath("key.pem"));
        QVERIFY(!m_signatures[id].isEmpty());
        const QString target = cache.prepareLensPath(id);
        QVERIFY(!target.isEmpty());
        QVERIFY(QDir().rename(made, target));
    }

    // Every file under a folder with its content, to prove nothing changed.
    static QMap<QString, QByteArray> snapshot(const QString &root)
    {
        QMap<QString, QByteArray> files;
        QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            QFile file(path);
            file.open(QIODevice::ReadOnly);
            files.insert(path.mid(root.size()), file.readAll());
        }
        return files;
    }

    static void writeFile(const QString &path, const QByteArray &content)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QTemporaryDir m_keys;
    QString m_publicKey;
    QScopedPointer<QTemporaryDir> m_root;
    QHash<QString, QString> m_signatures;
};

QTEST_GUILESS_MAIN(TestLensCache)
#include "tst_lenscache.moc"
