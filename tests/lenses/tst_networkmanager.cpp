#include "httpfixture.h"
#include "networkmanager.h"

#include <QSignalSpy>
#include <QtTest>

using namespace VCam;
using nlohmann::json;

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

json bodyOf(const HttpFixture::Received &request)
{
    return json::parse(request.body.toStdString(), nullptr, false);
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

    // Every backend call carries the installation id and origin; JSON bodies
    // are sent with their content type.
    void backendRequestsCarryHeadersAndBodies()
    {
        Answer answer;
        m_network->setAccessToken("token-abc");
        m_network->requestScheduledLenses(recorder(answer));
        m_network->requestTopLenses(100, 50, recorder(answer));
        m_network->searchLenses(QString::fromUtf8("caf\xc3\xa9 & \"dogs\""), recorder(answer));
        m_network->requestUnlock("lens-1", recorder(answer));
        m_network->requestLenses({"a", "b"}, recorder(answer));
        m_network->reportLens("lens-2", "rude", recorder(answer));
        m_network->sendLensUpdateEvent({{"unlockable_id", "lens-3"}}, true, recorder(answer));
        m_network->requestLatestVersion(recorder(answer));
        QTRY_COMPARE(answer.calls, 8);

        const auto &got = m_fixture->received();
        QCOMPARE(got.size(), 8);
        for (const auto &request : got) {
            QCOMPARE(request.headers.value("x-installation-id"), QByteArray("install-42"));
            QCOMPARE(request.headers.value("origin"), QByteArray("https://localhost/"));
            const bool post = request.method == "POST";
            QCOMPARE(request.headers.value("content-type") == "application/json", post);
        }
        auto find = [&got](const QByteArray &path) {
            for (const auto &request : got) {
                if (request.target.startsWith(path))
                    return request;
            }
            return HttpFixture::Received{};
        };
        QCOMPARE(find("/vc/v1/explorer/scheduled").method, QByteArray("GET"));
        QCOMPARE(find("/vc/v1/explorer/top").target,
                 QByteArray("/vc/v1/explorer/top?country=US&offset=100&limit=50"));
        QCOMPARE(bodyOf(find("/vc/v1/explorer/search")), json({{"query", "caf\xc3\xa9 & \"dogs\""}}));
        QCOMPARE(find("/vc/v1/explorer/unlock").target, QByteArray("/vc/v1/explorer/unlock?uid=lens-1"));
        QCOMPARE(bodyOf(find("/vc/v1/explorer/lenses")), json({{"lenses", {"a", "b"}}}));
        QCOMPARE(bodyOf(find("/vc/v1/reporting/lens")),
                 json({{"lens_id", "lens-2"},
                       {"reason_id", "report_lens_reason_this_lens_is_inappropriate"},
                       {"context", "rude"}}));
        const json event = bodyOf(find("/vc/v1/stream/event"));
        QCOMPARE(event["token"], json("token-abc"));
        QCOMPARE(event["action"], json("lens_update"));
        QCOMPARE(event["payload"], json({{"lens", {{"unlockable_id", "lens-3"}}}}));
        QCOMPARE(event["is_subscribe_enabled"], json(true));
        QVERIFY(std::abs(event["client_ts"].get<qint64>() - QDateTime::currentSecsSinceEpoch()) < 60);
        QVERIFY(find("/vc/v1/update/latest").target.endsWith("?platform=linux"));
        // Compact serialisation: no spaces between members.
        QVERIFY(!find("/vc/v1/explorer/lenses").body.contains(' '));
    }

    // Twitch calls: authorisation headers, user lookup, revocation and a
    // failed refresh, which both end the login.
    void twitchCalls()
    {
        qputenv("GLINT_TWITCH_OAUTH_URL", m_fixture->url("/oauth2").toUtf8());
        qputenv("GLINT_TWITCH_HELIX_URL", m_fixture->url("/helix").toUtf8());
        qputenv("GLINT_TWITCH_CLIENT_ID", "client-1");
        m_fixture->route("/oauth2/validate", 200, R"({"login":"streamer","user_id":"77"})");
        m_fixture->route("/oauth2/revoke", 200, "");
        m_fixture->route("/helix/users/extensions/list", 200, "{}");
        m_fixture->route("/vc/v1/stream/authorize/refresh", 401, "{}");
        QSignalSpy user(m_network.get(), &NetworkManager::twitchUserIdReceived);
        QSignalSpy lost(m_network.get(), &NetworkManager::authorizationLost);
        m_network->setAccessToken("tok");
        Answer helix, revoke, refresh;
        m_network->requestTwitchUserId();
        m_network->requestHelix("users/extensions/list", recorder(helix));
        QTRY_VERIFY(helix.called && user.count() == 1);
        QCOMPARE(user.first(), (QList<QVariant>{"streamer", "77"}));
        m_network->refreshTwitchToken("refresh-1", recorder(refresh));
        QTRY_COMPARE(lost.count(), 1);
        QVERIFY(!refresh.called);
        m_network->revokeTwitchToken(recorder(revoke));
        QTRY_VERIFY(revoke.called);
        QCOMPARE(lost.count(), 2);
        QVERIFY(m_network->accessToken().isEmpty());

        const auto &got = m_fixture->received();
        const int validate = got[0].target == "/oauth2/validate" ? 0 : 1;
        QCOMPARE(got[validate].headers.value("authorization"), QByteArray("OAuth tok"));
        QCOMPARE(got[1 - validate].headers.value("authorization"), QByteArray("Bearer tok"));
        QVERIFY(!got[validate].headers.contains("x-installation-id"));
        QCOMPARE(bodyOf(got[2]),
                 json({{"twitch", {{"client_id", "client-1"}, {"refresh_token", "refresh-1"}}}}));
        QCOMPARE(got[3].method, QByteArray("POST"));
        QCOMPARE(got[3].target, QByteArray("/oauth2/revoke?client_id=client-1&token=tok"));
        QVERIFY(m_network->getAuthorizationUrl().toString().startsWith(
            m_fixture->url("/oauth2/authorize?client_id=client-1&")));
    }

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

    void silentServersAreGivenUp()
    {
        HttpFixture::Response silent;
        silent.silent = true;
        m_fixture->route("/vc/v1/explorer/scheduled", silent);
        Answer answer;
        m_network->requestScheduledLenses(recorder(answer));
        QTRY_VERIFY_WITH_TIMEOUT(answer.called, 15000);
        QCOMPARE(answer.status, 0);
        QVERIFY(!answer.error.isEmpty());
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
