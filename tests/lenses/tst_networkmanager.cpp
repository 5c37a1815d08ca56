// The backend client and the catalogue requests of the lens provider,
// against a fixture for answers the lens server would never give.
#include "httpfixture.h"
#include "networklensprovider.h"
#include "networkmanager.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;

namespace {

struct Answer
{
    int calls = 0;
    int status = -1;
    QByteArray body;
    QString error;
};

NetworkManager::Completion recorder(Answer &answer)
{
    return [&answer](int status, const QByteArray &body, const QString &error) {
        answer = {answer.calls + 1, status, body, error};
    };
}

} // namespace

class TestNetworkManager : public QObject
{
    Q_OBJECT
    QScopedPointer<HttpFixture> m_fixture;
    std::unique_ptr<NetworkManager> m_network;

private slots:
    void init()
    {
        m_fixture.reset(new HttpFixture);
        m_network.reset(
            new NetworkManager(m_fixture->url("/vc/v1"), [] { return QStringLiteral("install-42"); }));
    }

    // Archives come from plain addresses: the installation id and origin
    // stay with the backend. Oversized answers fail.
    void plainDownloadsAreBounded()
    {
        m_fixture->route("/files/a.zip", 200, "archive bytes");
        Answer answer;
        m_network->download(QUrl(m_fixture->url("/files/a.zip")), recorder(answer));
        QTRY_COMPARE(answer.calls, 1);
        QCOMPARE(answer.body, QByteArray("archive bytes"));
        QVERIFY(answer.error.isEmpty());
        QVERIFY(!m_fixture->received().first().headers.contains("x-installation-id"));
        QVERIFY(!m_fixture->received().first().headers.contains("origin"));

        m_network->setMaxDownloadBytes(1000);
        m_fixture->route("/big", 200, QByteArray(200000, 'x'));
        Answer big;
        m_network->download(QUrl(m_fixture->url("/big")), recorder(big));
        QTRY_COMPARE(big.calls, 1);
        QVERIFY(big.body.isNull());
        QCOMPARE(big.error, QString("The answer is larger than allowed"));
        QCOMPARE(m_network->pendingCount(), 0);
    }

    void failuresReachTheCompletion()
    {
        m_fixture->route("/vc/v1/explorer/scheduled", 500, "{\"error\":\"boom\"}");
        HttpFixture::Response silent;
        silent.silent = true;
        m_fixture->route("/vc/v1/explorer/top", silent);
        NetworkManager unreachable("http://127.0.0.1:1/vc/v1", {});
        Answer serverError, refused, unanswered;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("ConnectionRefusedError"));
        m_network->requestScheduledLenses(recorder(serverError));
        unreachable.requestScheduledLenses(recorder(refused));
        m_network->requestTopLenses(0, 50, recorder(unanswered));
        QTRY_VERIFY_WITH_TIMEOUT(serverError.calls && refused.calls && unanswered.calls, 15000);
        QCOMPARE(serverError.status, 500);
        QVERIFY(serverError.body.isNull());
        for (const Answer &answer : {serverError, refused, unanswered})
            QVERIFY(!answer.error.isEmpty());
        QCOMPARE(refused.status, 0);
        QCOMPARE(unanswered.status, 0);
    }

    void tooManyRequestsIsOneErrorAndNoAnswer()
    {
        m_fixture->route("/vc/v1/explorer/search", 429, "{\"error\":\"too_many_requests\"}");
        QSignalSpy errors(m_network.get(), &NetworkManager::error);
        Answer answer;
        m_network->searchLenses("cats", recorder(answer));
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), QString("Too many requests, please try again later"));
        QTest::qWait(100);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(answer.calls, 0);
        QCOMPARE(m_network->pendingCount(), 0);
    }

    // A record of the wrong shape fails the request with its reason.
    void malformedLensRecordsFailTheRequest()
    {
        m_fixture->route("/vc/v1/explorer/lenses", 200,
                         "{\"lenses\":[{\"image_sequence\":{\"size\":\"3\"}}]}");
        QTemporaryDir cache;
        NetworkLensProvider provider(m_network.get(), cache.path(), QString());
        QSignalSpy succeeded(&provider, &LensProvider::lensesInfoSuccess);
        QSignalSpy failed(&provider, &LensProvider::lensesInfoFailure);
        provider.requestLensesInfo({"a", "b"});
        QTRY_COMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).value<std::vector<LensId>>(), (std::vector<LensId>{"a", "b"}));
        QVERIFY(failed.at(0).at(1).toString().startsWith("Unexpected LensInfo format: "));
        QCOMPARE(succeeded.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestNetworkManager)
#include "tst_networkmanager.moc"
