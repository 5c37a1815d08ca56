#include "baselensmodel.h"
#include "favoriteslensmodel.h"
#include "lensinfostorage.h"
#include "recentslensmodel.h"
#include "recentslensproxymodel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

using namespace VCam;

namespace {

LensInfo lens(const QString &id, const QString &name = QString())
{
    LensInfo info;
    info.lensId = id;
    info.lensName = name.isEmpty() ? QStringLiteral("Lens ") + id : name;
    return info;
}

QStringList rows(const QAbstractItemModel &model)
{
    QStringList ids;
    for (int row = 0; row < model.rowCount(); ++row)
        ids << model.index(row, 0).data(LensInfoStorage::InfoRolesCount).toString();
    return ids;
}

QDateTime at(int seconds)
{
    return QDateTime::fromSecsSinceEpoch(1700000000 + seconds, Qt::UTC);
}

} // namespace

class TestLensModels : public QObject
{
    Q_OBJECT

private slots:
    void rowsReadTheStorage()
    {
        LensInfoStorage storage;
        BaseLensModel model(&storage);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setLensIds({"a", "b", "a"});
        QCOMPARE(rows(model), (QStringList{"a", "b"}));
        // Unknown lenses still answer their id, nothing else.
        QCOMPARE(model.index(1).data(LensInfoStorage::TitleRole).toString(), QString());

        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        storage.insert(lens("b"));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).toModelIndex().row(), 1);
        QCOMPARE(model.index(1).data(LensInfoStorage::TitleRole).toString(), QString("Lens b"));
        storage.insert(lens("b")); // the same record again: no repaint
        QCOMPARE(changed.count(), 1);
        storage.insert(lens("b", "Renamed"));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(model.index(1).data(LensInfoStorage::TitleRole).toString(), QString("Renamed"));

        storage.insert(lens("a"));
        storage.remove("a");
        QCOMPARE(rows(model), QStringList{"b"});
        model.appendLensIds({"b", "c", "c"});
        QCOMPARE(rows(model), (QStringList{"b", "c"}));
    }

    void favoritesFollowTheFlag()
    {
        LensInfoStorage storage;
        storage.insert(lens("a"));
        storage.insert(lens("b"));
        FavoritesLensModel favorites(&storage);
        BaseLensModel other(&storage);
        other.setLensIds({"a", "b"});
        QSignalSpy otherChanged(&other, &QAbstractItemModel::dataChanged);

        QVERIFY(favorites.setFavorite("a", true));
        QVERIFY(favorites.setFavorite("b", true));
        QVERIFY(!favorites.setFavorite("b", true));
        QVERIFY(!favorites.setFavorite(kInvalidLensId, true));
        QCOMPARE(rows(favorites), (QStringList{"b", "a"})); // newest first
        // Every list showing the lens repaints its heart.
        QCOMPARE(otherChanged.count(), 2);
        QVERIFY(other.index(0).data(LensInfoStorage::IsFavoriteRole).toBool());

        QVERIFY(favorites.setFavorite("a", false));
        QVERIFY(!storage.isFavorite("a"));
        QCOMPARE(rows(favorites), QStringList{"b"});

        favorites.setFavorites({"x", "-1", "b"});
        QCOMPARE(rows(favorites), (QStringList{"x", "b"}));
        QVERIFY(storage.isFavorite("x"));
        favorites.clear();
        QCOMPARE(favorites.rowCount(), 0);
        QVERIFY(!storage.isFavorite("b") && !storage.isFavorite("x"));
    }

    void recentsOrderLimitAndPersistence()
    {
        LensInfoStorage storage;
        RecentsLensModel recents(&storage);
        QAbstractItemModelTester tester(&recents, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(recents.mostRecent(), kInvalidLensId);
        recents.activate("a", at(1));
        recents.activate("b", at(2));
        recents.activate("a", at(3));
        QCOMPARE(rows(recents), (QStringList{"a", "b"}));
        QCOMPARE(recents.index(0).data(RecentsLensModel::LastActivatedTimeRole).toDateTime(), at(3));

        for (int i = 0; i < RecentsLensModel::kMaxRecents + 5; ++i)
            recents.activate(QString("n%1").arg(i), at(10 + i));
        QCOMPARE(recents.rowCount(), RecentsLensModel::kMaxRecents);
        QCOMPARE(recents.mostRecent(), QString("n%1").arg(RecentsLensModel::kMaxRecents + 4));
        QVERIFY(!recents.lensIds().contains("a"));
        QVERIFY(!recents.lastActivated("a").isValid());

        const nlohmann::json saved = recents.toJson();
        QCOMPARE(saved.size(), size_t(RecentsLensModel::kMaxRecents));
        QVERIFY(saved[0].contains("lensId") && saved[0]["timestamp"].is_number_integer());
        RecentsLensModel restored(&storage);
        restored.fromJson(saved);
        QCOMPARE(restored.lensIds(), recents.lensIds());
        QCOMPARE(restored.lastActivated(recents.mostRecent()), at(10 + RecentsLensModel::kMaxRecents + 4));

        // Stored in any order, loaded newest first; bad elements are skipped.
        restored.fromJson(nlohmann::json::parse(
            R"([{"lensId":"old","timestamp":1},{"lensId":7},{"lensId":"new","timestamp":9},"x"])"));
        QCOMPARE(restored.lensIds(), (QStringList{"new", "old"}));
    }

    void recentsHoldStillWhileShown()
    {
        LensInfoStorage storage;
        RecentsLensModel recents(&storage);
        recents.activate("a", at(1));
        recents.activate("b", at(2));
        recents.setShown(true);
        recents.activate("a", at(3));
        recents.activate("c", at(4));
        QCOMPARE(rows(recents), (QStringList{"b", "a"}));
        // The toggle and the saved list still see the held-back activation.
        QCOMPARE(recents.mostRecent(), QString("c"));
        recents.setShown(false);
        QCOMPARE(rows(recents), (QStringList{"c", "a", "b"}));
    }

    void proxyShowsKnownLensesNewestFirst()
    {
        LensInfoStorage storage;
        RecentsLensModel recents(&storage);
        RecentsLensProxyModel proxy(&recents);
        QAbstractItemModelTester tester(&proxy, QAbstractItemModelTester::FailureReportingMode::QtTest);
        recents.fromJson(nlohmann::json::parse(
            R"([{"lensId":"a","timestamp":1000},{"lensId":"b","timestamp":3000},{"lensId":"c","timestamp":2000}])"));
        QCOMPARE(proxy.count(), 0); // no records yet
        storage.insert(lens("a", "Alpha"));
        storage.insert(lens("c", "Gamma"));
        QCOMPARE(rows(proxy), (QStringList{"c", "a"}));
        storage.insert(lens("b", "Beta"));
        QCOMPARE(rows(proxy), (QStringList{"b", "c", "a"}));
        recents.activate("a", at(5));
        QCOMPARE(proxy.lensIdAt(0), QString("a"));
        QCOMPARE(proxy.index(0, 0).data(RecentsLensModel::LastActivatedTimeRole).toDateTime(), at(5));
        proxy.setFilterFixedString("gam");
        QCOMPARE(rows(proxy), QStringList{"c"});
    }
};

QTEST_GUILESS_MAIN(TestLensModels)
#include "tst_lensmodels.moc"
