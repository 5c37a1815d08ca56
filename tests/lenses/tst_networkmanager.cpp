#include "httpfixture.h"
#include "networkmanager.h"

#include <QSignalSpy>
#include <QtTest>

using namespace VCam;

namespace {

struct Answer
{
    bool called = false;
    int calls = 0;
    int status = -1;
    QByteArray body;
    QString error;
};

NetworkManager::Completion recorder(Answer &answer)
{
    return [&answer](int status, const QByteArray &body, const QString &error) {
        answer.called = true;
        ++answer.calls;
        answer.status = status;
        answer.body = body;
        answer.error = error;
    };
}

} // namespace

class TestNetworkManager : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_fixture.reset(new HttpFixture);
        m_network.reset(
            new NetworkManager(m_fixture->url("/vc/v1"), [] { return QStringLiteral("install-42"); }));
    }

    // Archives come from plain addresses: the installation id and origin
    // stay with the backend. (Backend calls carry them; the real server
    // refuses any without, as the store and acquisition tests show.)
    void plainDownloadsCarryNoBackendHeaders()
    {
        m_fixture->route("/files/a.zip", 200, "archive bytes");
        Answer answer;
        m_network->download(QUrl(m_fixture->url("/files/a.zip")), recorder(answer));
        QTRY_VERIFY(answer.called);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, QByteArray("archive bytes"));
        QVERIFY(answer.error.isEmpty());
        QVERIFY(!m_fixture->received().first().headers.contains("x-installation-id"));
        QVERIFY(!m_fixture->received().first().headers.contains("origin"));
        QCOMPARE(m_network->pendingCount(), 0);
    }

    void failuresReachTheCompletion()
    {
        m_fixture->route("/vc/v1/explorer/scheduled", 500, "{\"error\":\"boom\"}");
        Answer serverError;
        m_network->requestScheduledLenses(recorder(serverError));
        QTRY_VERIFY(serverError.called);
        QCOMPARE(serverError.status, 500);
        QVERIFY(!serverError.error.isEmpty());
        QVERIFY(serverError.body.isNull());

        NetworkManager unreachable("http://127.0.0.1:1/vc/v1", {});
        Answer refused;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("ConnectionRefusedError"));
        unreachable.requestScheduledLenses(recorder(refused));
        QTRY_VERIFY(refused.called);
        QCOMPARE(refused.status, 0);
        QVERIFY(!refused.error.isEmpty());

        HttpFixture::Response silent;
        silent.silent = true;
        m_fixture->route("/vc/v1/explorer/top", silent);
        Answer unanswered;
        m_network->requestTopLenses(0, 50, recorder(unanswered));
        QTRY_VERIFY_WITH_TIMEOUT(unanswered.called, 15000);
        QCOMPARE(unanswered.status, 0);
        QVERIFY(!unanswered.error.isEmpty());
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
        QVERIFY(!answer.called);
        QCOMPARE(m_network->pendingCount(), 0);
    }

    void oversizedAnswersFail()
    {
        m_network->setMaxDownloadBytes(1000);
        m_fixture->route("/big", 200, QByteArray(200000, 'x'));
        Answer answer;
        m_network->download(QUrl(m_fixture->url("/big")), recorder(answer));
        QTRY_VERIFY(answer.called);
        QVERIFY(answer.body.isNull());
        QCOMPARE(answer.error, QString("The answer is larger than allowed"));
    }

    // Going offline and back is announced once each way; failed checks are
    // repeated by the re-check timer until one succeeds.
    void onlineStateFollowsChecks()
    {
        m_fixture->route("/vc/v1/update/latest", 503, "{}");
        m_network->setRecheckInterval(100);
        QSignalSpy state(m_network.get(), &NetworkManager::networkStateChanged);
        QSignalSpy failed(m_network.get(), &NetworkManager::networkCheckFailed);
        QSignalSpy ok(m_network.get(), &NetworkManager::networkCheckOk);
        QVERIFY(m_network->isOnline());
        m_network->updateNetworkStatus();
        QTRY_COMPARE(failed.count(), 3);
        QVERIFY(!m_network->isOnline());
        QCOMPARE(state.count(), 1);
        QCOMPARE(state.first().first().toBool(), false);
        QVERIFY(m_network->failedChecks() >= 3);

        m_fixture->route("/vc/v1/update/latest", 200, "{}");
        QTRY_COMPARE(ok.count(), 1);
        QVERIFY(m_network->isOnline());
        QCOMPARE(m_network->failedChecks(), 0);
        QCOMPARE(state.count(), 2);
        QCOMPARE(state.last().first().toBool(), true);
        const int checks = m_fixture->count("/vc/v1/update/latest");
        QTest::qWait(300);
        QCOMPARE(m_fixture->count("/vc/v1/update/latest"), checks); // timer stopped
    }

private:
    QScopedPointer<HttpFixture> m_fixture;
    std::unique_ptr<NetworkManager> m_network;
};

QTEST_GUILESS_MAIN(TestNetworkManager)
#include "tst_networkmanager.moc"
