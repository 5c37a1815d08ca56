// The Twitch account link end to end: the program's sign-in against a
// Twitch stand-in, the real lens server exchanging and refreshing tokens,
// the redirect server answering a browser tab, and the real credential
// store (a private gnome-keyring inside its own D-Bus session).
#include "lensserverprocess.h"
#include "signinbrowser.h"
#include "twitchprogram.h"
#include "twitchstandin.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>
#include <httpserver.h>
#include <metatypes.h>
#include <optional>
#include <qt5keychain/keychain.h>

using namespace VCam;

Q_DECLARE_METATYPE(TwitchStandIn::Extension)

namespace {

// The stored record as the next start of the program would read it.
std::optional<OAuthTokens> storedTokens()
{
    QTest::qWait(500); // a record is written after its announcement
    KeychainComponent keychain(QCoreApplication::applicationName());
    QSignalSpy loaded(&keychain, &KeychainComponent::tokensLoaded);
    QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
    keychain.load();
    if (!finished.wait(10000) || !finished.first().first().toBool() || loaded.isEmpty())
        return std::nullopt;
    return loaded.first().first().value<OAuthTokens>();
}

bool storeTokens(const OAuthTokens &tokens)
{
    KeychainComponent keychain(QCoreApplication::applicationName());
    QSignalSpy done(&keychain, &KeychainComponent::storeFinished);
    keychain.store(tokens);
    return done.wait(10000) && done.first().first().toBool();
}

// A backend that takes the request and then trickles an answer that never
// ends: alive enough for the client's transfer timeout, never an answer.
class SilentBackend : public QTcpServer
{
public:
    SilentBackend()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                socket->readAll();
                if (!socket->property("answered").toBool())
                    socket->write("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
                socket->setProperty("answered", true);
            });
            auto *trickle = new QTimer(socket);
            connect(trickle, &QTimer::timeout, socket, [socket] { socket->write(" "); });
            trickle->start(300);
        });
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1/vc/v1").arg(serverPort()); }
};

} // namespace

class TwitchAuthTest : public QObject
{
    Q_OBJECT
    TwitchStandIn m_twitch;
    LensServerProcess m_lensServer;

    std::unique_ptr<TwitchProgram> program(const QString &backendUrl = QString())
    {
        auto program =
            std::make_unique<TwitchProgram>(backendUrl.isEmpty() ? m_lensServer.baseUrl() : backendUrl);
        program->start();
        return program;
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("tst_twitchauth"));
        registerMetaTypes();
        qputenv("GLINT_WEB_RESOURCES", GLINT_WEB_RESOURCES_DIR);
        qputenv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
        QVERIFY(m_twitch.start() && m_lensServer.isReady());
        qputenv("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl().toUtf8());
        qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
        // Live events are not under test here: nothing answers there.
        qputenv("GLINT_TWITCH_EVENTSUB_URL", "ws://127.0.0.1:9/ws");
        qputenv("GLINT_TWITCH_PUBSUB_URL", "ws://127.0.0.1:9");
        QVERIFY(m_lensServer.start(m_twitch.lensServerArguments()));
    }

    // Each case starts without a login from an earlier one.
    void init()
    {
        KeychainComponent keychain(QCoreApplication::applicationName());
        QSignalSpy done(&keychain, &KeychainComponent::storeFinished);
        keychain.remove();
        QVERIFY(done.wait(10000));
    }

    void signInByExtensionStatus_data()
    {
        QTest::addColumn<TwitchStandIn::Extension>("extension");
        QTest::addColumn<TwitchExtensionStatus>("status");
        QTest::addColumn<QByteArray>("page");
        QTest::newRow("not installed") << TwitchStandIn::Extension::None
                                       << TwitchExtensionStatus::NotInstalled << QByteArray("One more step");
        QTest::newRow("installed, no active slot")
            << TwitchStandIn::Extension::Installed << TwitchExtensionStatus::NotActivated
            << QByteArray("All set");
        QTest::newRow("active") << TwitchStandIn::Extension::Active << TwitchExtensionStatus::Activated
                                << QByteArray("All set");
    }
    void signInByExtensionStatus()
    {
        QFETCH(TwitchStandIn::Extension, extension);
        QFETCH(TwitchExtensionStatus, status);
        QFETCH(QByteArray, page);
        m_twitch.setExtension(extension);
        SignInBrowser browser;
        auto p = program();
        QSignalSpy states(p->service.get(), &TwitchService::authStateChanged);
        const int exchanges = m_twitch.codeExchanges();
        p->send(ActionType::AuthorizeTwitch);
        QTRY_VERIFY_WITH_TIMEOUT(browser.tab && browser.tab->connected(), 10000);
        QCOMPARE(browser.opened, QList<QUrl>{p->helper()->authorizeUrl()});
        QVERIFY(browser.opened.first().toEncoded().endsWith(
            "&response_type=code&scope=channel_read%20channel_subscriptions%20user:edit:broadcast"
            "%20channel:read:subscriptions%20bits:read"));
        QVERIFY(browser.redirect.toString().startsWith(QStringLiteral("http://localhost:8492/?code=")));
        QTRY_COMPARE_WITH_TIMEOUT(p->state(), TwitchAuthState::Authorized, 10000);
        QCOMPARE(m_twitch.codeExchanges(), exchanges + 1);
        QCOMPARE(states.size(), 3); // waiting for the code, for the token, authorized
        QCOMPARE(states.at(1).first().value<TwitchAuthState>(), TwitchAuthState::WaitingAccessToken);
        QTRY_COMPARE(p->sent(ActionType::TwitchUserAuthorized).size(), 1);

        // The tab gets its page as soon as the extension check on Helix has
        // answered, well before the delay a missing answer would take.
        QElapsedTimer sinceTokens;
        sinceTokens.start();
        QVERIFY(browser.tab->waitClosed(HttpServer::kResultDelayMs));
        QVERIFY(sinceTokens.elapsed() < HttpServer::kResultDelayMs - 1000);
        const QByteArray body = browser.tab->body();
        QCOMPARE(browser.tab->answer(), "HTTP/1.1 200 OK\nContent-Type: text/html; charset=utf-8\n"
                                        "Connection: close\nContent-Length: " +
                                            QByteArray::number(body.size()) + "\n\n" + body);
        QVERIFY(body.contains(page) && body.contains("Authorization Succeeded"));
        QCOMPARE(TwitchExtensionStatus(p->store->extensionStatus()), status);
        QTRY_COMPARE_WITH_TIMEOUT(p->store->currentUserName(), QStringLiteral("GlintStreamer"), 10000);
        QVERIFY(p->store->isPartnerAccount() && p->store->tokensRemembered());
        const auto stored = storedTokens();
        QVERIFY(stored && stored->accessToken == p->token());
        QVERIFY(m_twitch.isAccessTokenValid(stored->accessToken.toStdString()));
        if (extension != TwitchStandIn::Extension::None)
            return;
        // Nothing of the sign-in listens once it has ended.
        QTRY_VERIFY_WITH_TIMEOUT(!p->helper()->server()->isListening(), HttpServer::kLingerMs + 3000);
        QTcpSocket probe;
        probe.connectToHost(QStringLiteral("127.0.0.1"), HttpServer::kPort);
        QVERIFY(!probe.waitForConnected(2000));
    }

    void userRefuses()
    {
        m_twitch.setUserRefuses(true);
        SignInBrowser browser;
        auto p = program();
        const int exchanges = m_twitch.codeExchanges();
        p->send(ActionType::AuthorizeTwitch);
        QTRY_VERIFY_WITH_TIMEOUT(browser.tab, 10000);
        m_twitch.setUserRefuses(false);
        QVERIFY(browser.redirect.query().contains(QStringLiteral("error=access_denied")));
        QVERIFY(browser.tab->waitClosed(3000) && browser.tab->body().contains("Authorization Failed"));
        QCOMPARE(p->state(), TwitchAuthState::WaitingAccessCode);
        QVERIFY(p->helper()->server()->isListening());
        QCOMPARE(m_twitch.codeExchanges(), exchanges);
    }

    void backendNeverAnswers()
    {
        SilentBackend backend;
        SignInBrowser browser;
        auto p = program(backend.url());
        p->send(ActionType::AuthorizeTwitch);
        QTRY_COMPARE_WITH_TIMEOUT(p->state(), TwitchAuthState::WaitingAccessToken, 10000);
        const int wait = TwitchAuthorizationHelper::kTokenWaitMs + HttpServer::kResultDelayMs;
        QElapsedTimer sinceCode;
        sinceCode.start();
        QVERIFY(browser.tab->waitClosed(wait + 3000) && sinceCode.elapsed() >= wait - 1000);
        QVERIFY(browser.tab->body().contains("Authorization Failed"));
        QCOMPARE(p->state(), TwitchAuthState::WaitingAccessToken);
    }

    // The user never signs in: the redirect server closes after the wait,
    // a late redirect finds nobody, and nothing was revoked.
    void noCodeWithinTheWait()
    {
        SignInBrowser browser;
        browser.follow = false;
        auto p = program();
        const int revocations = m_twitch.revocations();
        p->helper()->setCodeWaitInterval(1500);
        p->send(ActionType::AuthorizeTwitch);
        QTRY_VERIFY(p->helper()->server()->isListening());
        QTRY_VERIFY_WITH_TIMEOUT(!p->helper()->server()->isListening(), 5000);
        QCOMPARE(p->state(), TwitchAuthState::WaitingAccessCode);
        BrowserTab late(HttpServer::kPort, "GET /?code=late HTTP/1.1\r\n\r\n");
        QVERIFY(late.waitClosed(3000) && !late.connected());
        QCOMPARE(m_twitch.revocations(), revocations);
    }

    // A token that expired while the program was closed is refreshed at
    // start; one about to expire is refreshed while the program runs. Either
    // way the new record replaces the stored one.
    void refreshBeforeAndAfterExpiry()
    {
        const int refreshes = m_twitch.refreshes();
        QVERIFY(storeTokens(storedForm(m_twitch.issueTokens(), -3 * 86400)));
        auto p = program();
        QSignalSpy authorized(p->service->authClient(), &TwitchAuthClient::authorized);
        QVERIFY(authorized.wait(10000));
        QCOMPARE(m_twitch.refreshes(), refreshes + 1);
        QVERIFY(!authorized.first().first().value<OAuthTokens>().needsRefresh());
        QCOMPARE(p->state(), TwitchAuthState::Authorized);

        p->service->authClient()->installTokens(
            storedForm(m_twitch.issueTokens(), OAuthTokens::kRefreshMarginSecs + 3));
        QVERIFY(p->service->authClient()->msUntilCheck() <= 4000);
        QCOMPARE(authorized.size(), 2); // the token is good for a few seconds more
        QVERIFY(authorized.wait(10000));
        QCOMPARE(m_twitch.refreshes(), refreshes + 2);
        const QString renewed = authorized.last().first().value<OAuthTokens>().accessToken;
        QVERIFY(m_twitch.isAccessTokenValid(renewed.toStdString()));
        QCOMPARE(storedTokens()->accessToken, renewed);
        QVERIFY(p->popups().isEmpty());
    }

    // A refresh Twitch refuses, a token Twitch refuses when the program
    // validates it at start, and the user's unlink all end the login, say so
    // once and leave nothing in the credential store; the unlink revokes.
    void logOut_data()
    {
        QTest::addColumn<QString>("ending");
        for (const char *ending : {"refresh refused", "token refused", "unlink"})
            QTest::newRow(ending) << QString::fromLatin1(ending);
    }
    void logOut()
    {
        QFETCH(QString, ending);
        const bool refreshFails = ending == "refresh refused", unlink = ending == "unlink";
        const auto issued = m_twitch.issueTokens();
        QVERIFY(storeTokens(storedForm(issued, refreshFails ? -60 : 3600)));
        if (refreshFails)
            m_twitch.forgetRefreshTokens();
        if (ending == "token refused")
            m_twitch.invalidateAccessToken(issued.first);
        const int revocations = m_twitch.revocations() + (unlink ? 1 : 0);
        auto p = program();
        if (unlink) {
            QTRY_COMPARE_WITH_TIMEOUT(p->store->currentUserName(), QStringLiteral("GlintStreamer"), 10000);
            p->send(ActionType::DeauthorizeTwitch);
        }
        QTRY_COMPARE_WITH_TIMEOUT(p->state(), TwitchAuthState::NotAuthorized, 10000);
        QTRY_COMPARE(p->popups(), QStringList{QStringLiteral("We've logged you out")});
        QTRY_COMPARE(p->sent(ActionType::TwitchUserDeauthorized).size(), 1);
        QVERIFY(p->network.accessToken().isEmpty() && p->store->currentUserName().isEmpty());
        QVERIFY(!storedTokens());
        QCOMPARE(m_twitch.revocations(), revocations);
        QCOMPARE(m_twitch.isAccessTokenValid(issued.first), refreshFails);
        // Unlinking again has nothing to revoke and says nothing.
        p->send(ActionType::ClearAppIntegrations);
        QTest::qWait(500);
        QCOMPARE(m_twitch.revocations(), revocations);
        QCOMPARE(p->popups().size(), 1);
    }

    // Whatever else sits under our key in the credential store is removed,
    // and the program starts signed out.
    void unexpectedStoredDataIsCleanedUp()
    {
        KeychainComponent keychain(QCoreApplication::applicationName());
        for (const QByteArray &junk : {QByteArray("[1,2,3]"), QByteArray("not json"),
                                       QByteArray("{\"access_token\":\"a\"}"), QByteArray(100000, '{')}) {
            QKeychain::WritePasswordJob write(keychain.serviceName());
            write.setKey(KeychainComponent::kKey);
            write.setBinaryData(junk);
            write.setAutoDelete(false);
            QSignalSpy written(&write, &QKeychain::Job::finished);
            write.start();
            QVERIFY(written.wait(10000) && write.error() == QKeychain::NoError);
            QSignalSpy loaded(&keychain, &KeychainComponent::tokensLoaded);
            QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
            QSignalSpy removed(&keychain, &KeychainComponent::storeFinished);
            QTest::ignoreMessage(QtWarningMsg, "Unexpected data in OAuth keychain, cleaning up");
            keychain.load();
            QVERIFY(finished.wait(10000) && loaded.isEmpty() && !finished.first().first().toBool());
            QVERIFY(removed.count() == 1 || removed.wait(10000));
            QVERIFY(!storedTokens());
        }
    }
};

QTEST_MAIN(TwitchAuthTest)
#include "tst_twitchauth.moc"
