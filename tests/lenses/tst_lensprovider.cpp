#include "httpfixture.h"
#include "networklensprovider.h"
#include "networkmanager.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;

namespace {

template <typename T> T argument(const QSignalSpy &spy, int index, int row = 0)
{
    return spy.at(row).at(index).value<T>();
}

} // namespace

class TestLensProvider : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_fixture.reset(); }

    // Each request is answered by its failure signal with its own text.
    void failedAnswers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("reasonStart");
        QTest::newRow("server error") << 500 << QByteArray("{}") << "%1";
        QTest::newRow("garbage") << 200 << QByteArray("\x89PNG garbage") << "%1";
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
            m_fixture.route(path, status, body);
        NetworkManager network(m_fixture.url("/vc/v1"), {});
        NetworkLensProvider provider(&network, m_cache.path(), QString());
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
        m_fixture.route("/vc/v1/explorer/scheduled", slow);
        NetworkManager network(m_fixture.url("/vc/v1"), {});
        auto *provider = new NetworkLensProvider(&network, m_cache.path(), QString());
        provider->requestScheduledLenses();
        delete provider;
        QTRY_COMPARE(m_fixture.received().size(), 1);
        QTRY_COMPARE(network.pendingCount(), 0);
    }

private:
    QTemporaryDir m_cache;
    HttpFixture m_fixture;
};

QTEST_GUILESS_MAIN(TestLensProvider)
#include "tst_lensprovider.moc"
