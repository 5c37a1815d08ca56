#include "httpfixture.h"
#include "lensserverprocess.h"
#include "networklensprovider.h"
#include "networkmanager.h"
#include "testlenses.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;

namespace {

QStringList idsOf(const std::vector<LensInfo> &lenses)
{
    QStringList ids;
    for (const LensInfo &info : lenses)
        ids << info.lensId;
    return ids;
}

template <typename T> T argument(const QSignalSpy &spy, int index, int row = 0)
{
    return spy.at(row).at(index).value<T>();
}

} // namespace

class TestLensProvider : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_server.isReady());
        QStringList community;
        for (int i = 0; i < 4; ++i)
            community << TestLenses::makeLensFolder(m_lenses.path(), QString("community-%1").arg(i));
        QVERIFY(m_server.import(community));
        QVERIFY(m_server.import({TestLenses::makeLensFolder(m_lenses.path(), "featured-one")}, true));
        QVERIFY(m_server.start());
        m_fixture.reset(new HttpFixture);
    }

    void init() { m_fixture->reset(); }

    void listsFromTheServer()
    {
        NetworkManager network(m_server.baseUrl(), [] { return QStringLiteral("provider-test"); });
        NetworkLensProvider provider(&network, m_cache.path(), m_server.publicKey());
        QSignalSpy scheduled(&provider, &LensProvider::scheduledLensesSuccess);
        QSignalSpy community(&provider, &LensProvider::communityLensesSuccess);
        QSignalSpy search(&provider, &LensProvider::lensSearchSuccess);
        QSignalSpy info(&provider, &LensProvider::lensesInfoSuccess);

        provider.requestScheduledLenses();
        provider.requestCommunityLenses(0);
        provider.searchLenses("community");
        provider.requestLensesInfo({"community-1", "no-such-lens", "featured-one"});
        QTRY_VERIFY(scheduled.count() && community.count() && search.count() && info.count());

        const auto featured = argument<std::vector<LensInfo>>(scheduled, 0);
        QCOMPARE(idsOf(featured), QStringList{"featured-one"});
        QCOMPARE(featured[0].lensName, QString("Lens featured-one"));
        QVERIFY(!featured[0].iconUrl.isEmpty());
        QCOMPARE(featured[0].imageSequence.size, 1);

        QCOMPARE(argument<std::vector<LensInfo>>(community, 0).size(), size_t(5));
        QCOMPARE(argument<QString>(search, 0), QString("community"));
        QStringList found = idsOf(argument<std::vector<LensInfo>>(search, 1));
        found.sort();
        QCOMPARE(found, (QStringList{"community-0", "community-1", "community-2", "community-3"}));

        QCOMPARE(argument<std::set<LensId>>(info, 0), std::set<LensId>{"no-such-lens"});
        QStringList known = idsOf(argument<std::vector<LensInfo>>(info, 1));
        known.sort();
        QCOMPARE(known, (QStringList{"community-1", "featured-one"}));

        provider.requestCommunityLenses(3);
        QTRY_COMPARE(community.count(), 2);
        QCOMPARE(argument<std::vector<LensInfo>>(community, 0, 1).size(), size_t(2));
    }

    // Each request is answered by its failure signal with its own text.
    void failedAnswers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("reasonStart");
        QTest::newRow("server error") << 500 << QByteArray("{}") << "%1";
        QTest::newRow("garbage") << 200 << QByteArray("\x89PNG garbage") << "%1";
        QTest::newRow("no lenses") << 200 << QByteArray("{\"items\":[]}") << "%1";
        QTest::newRow("wrong type") << 200
                                    << QByteArray(
                                           "{\"lenses\":[{\"unlockable_id\":\"a\"},{\"lens_name\":7}]}")
                                    << "Unexpected LensInfo format: ";
        QTest::newRow("wrong nested type")
            << 200 << QByteArray("{\"lenses\":[{\"image_sequence\":{\"size\":\"3\"}}]}")
            << "Unexpected LensInfo format: ";
    }

    void failedAnswers()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, reasonStart);
        for (const char *path : {"/vc/v1/explorer/scheduled", "/vc/v1/explorer/top", "/vc/v1/explorer/search",
                                 "/vc/v1/explorer/lenses"})
            m_fixture->route(path, status, body);
        NetworkManager network(m_fixture->url("/vc/v1"), {});
        NetworkLensProvider provider(&network, m_cache.path(), m_server.publicKey());
        QSignalSpy successes[] = {{&provider, &LensProvider::scheduledLensesSuccess},
                                  {&provider, &LensProvider::communityLensesSuccess},
                                  {&provider, &LensProvider::lensSearchSuccess},
                                  {&provider, &LensProvider::lensesInfoSuccess}};
        QSignalSpy scheduled(&provider, &LensProvider::scheduledLensesFailure);
        QSignalSpy community(&provider, &LensProvider::communityLensesFailure);
        QSignalSpy search(&provider, &LensProvider::lensSearchFailure);
        QSignalSpy info(&provider, &LensProvider::lensesInfoFailure);

        provider.requestScheduledLenses();
        provider.requestCommunityLenses(50);
        provider.searchLenses("hats");
        provider.requestLensesInfo({"a", "b"});
        QTRY_VERIFY(scheduled.count() && community.count() && search.count() && info.count());

        const auto expect = [&reasonStart](const QString &reason, const QString &requestText) {
            const QString start = reasonStart == "%1" ? requestText : reasonStart;
            return reason.startsWith(start) && reason.size() > start.size();
        };
        QVERIFY2(expect(argument<QString>(scheduled, 0), "Failed to receive scheduled lenses: "),
                 qPrintable(argument<QString>(scheduled, 0)));
        QVERIFY(expect(argument<QString>(community, 0), "Failed to receive community lenses: "));
        QCOMPARE(argument<QString>(search, 0), QString("hats"));
        QVERIFY(expect(argument<QString>(search, 1), "Failed to search for lenses: "));
        QCOMPARE(argument<std::vector<LensId>>(info, 0), (std::vector<LensId>{"a", "b"}));
        QVERIFY(expect(argument<QString>(info, 1), "Failed to receive lenses info: "));
        for (const QSignalSpy &spy : successes)
            QCOMPARE(spy.count(), 0);
    }

    void answersAfterTheProviderIsGoneAreDropped()
    {
        HttpFixture::Response slow{200, "{\"lenses\":[]}"};
        slow.delayMs = 200;
        m_fixture->route("/vc/v1/explorer/scheduled", slow);
        NetworkManager network(m_fixture->url("/vc/v1"), {});
        auto *provider = new NetworkLensProvider(&network, m_cache.path(), m_server.publicKey());
        provider->requestScheduledLenses();
        delete provider;
        QTRY_COMPARE(m_fixture->received().size(), 1);
        QTRY_COMPARE(network.pendingCount(), 0);
    }

private:
    LensServerProcess m_server;
    QTemporaryDir m_lenses;
    QTemporaryDir m_cache;
    QScopedPointer<HttpFixture> m_fixture;
};

QTEST_GUILESS_MAIN(TestLensProvider)
#include "tst_lensprovider.moc"
