// The Twitch account link end to end: the program's sign-in against a
// Twitch stand-in, the real lens server exchanging and refreshing tokens,
// the redirect server answering a browser tab, and the real credential
// store (a private gnome-keyring inside its own D-Bus session).
#include "lensserverprocess.h"
#include "signinbrowser.h"
#include "twitchstandin.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <collectingstore.h>
#include <dispatcher.h>
#include <httpserver.h>
#include <keychaincomponent.h>
#include <metatypes.h>
#include <networkmanager.h>
#include <popupmessage.h>
#include <qt5keychain/keychain.h>
#include <twitchauthclient.h>
#include <twitchauthorizationhelper.h>
#include <twitchservice.h>
#include <twitchstore.h>

using namespace VCam;

namespace {

const QByteArray kHtmlHead = "HTTP/1.1 200 OK\nContent-Type: text/html; charset=utf-8\nConnection: close\n"
                             "Content-Length: ";

// The program's Twitch objects as the application wires them, with a store
// and a collector of the actions the store dispatches.
struct Program
{
    explicit Program(const QString &backendUrl)
        : network(backendUrl, [] { return QStringLiteral("test-installation"); }),
          keychain(QCoreApplication::applicationName()),
          service(std::make_shared<TwitchService>(&network, &keychain)),
          dispatcher(std::make_shared<Bureau::Dispatcher>()),
          store(std::make_shared<TwitchStore>(dispatcher, service)),
          collector(std::make_shared<CollectingStore>())
    {
        dispatcher->addStore(store);
        dispatcher->addStore(collector);
        dispatcher->start(); // the store reads the stored login
    }
    ~Program() { helper()->server()->abort(); }

    TwitchAuthorizationHelper *helper() const { return service->authorization(); }
    TwitchAuthState state() const { return service->authState(); }
    void act(ActionType type) { dispatcher->dispatch(new Bureau::Action(int(type))); }
    QStringList popups() const
    {
        QStringList texts;
        for (const auto &action : collector->ofType(ActionType::ShowPopupMessage))
            texts << action->payload.value<PopupMessage>().text;
        return texts;
    }

    NetworkManager network;
    KeychainComponent keychain;
    std::shared_ptr<TwitchService> service;
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<TwitchStore> store;
    std::shared_ptr<CollectingStore> collector;
};

// Reads the stored record the way the next start of the program would.
OAuthTokens storedTokens(bool *found)
{
    KeychainComponent keychain(QCoreApplication::applicationName());
    QSignalSpy loaded(&keychain, &KeychainComponent::tokensLoaded);
    QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
    keychain.load();
    if (!finished.wait(10000))
        return {};
    *found = finished.first().first().toBool();
    return loaded.isEmpty() ? OAuthTokens() : loaded.first().first().value<OAuthTokens>();
}

bool storeTokens(const OAuthTokens &tokens)
{
    KeychainComponent keychain(QCoreApplication::applicationName());
    QSignalSpy done(&keychain, &KeychainComponent::storeFinished);
    keychain.store(tokens);
    return done.wait(10000) && done.first().first().toBool();
}

OAuthTokens tokensExpiringIn(const std::pair<std::string, std::string> &issued, qint64 seconds)
{
    OAuthTokens tokens;
    tokens.issuedAt = QDateTime::currentSecsSinceEpoch() - 14400;
    tokens.expiresAt = QDateTime::currentSecsSinceEpoch() + seconds;
    tokens.accessToken = QString::fromStdString(issued.first);
    tokens.refreshToken = QString::fromStdString(issued.second);
    return tokens;
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
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: "
                                  "100000\r\n\r\n");
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
private slots:
    void initTestCase();
    void init();
    void signInShowsPageByExtensionStatus_data();
    void signInShowsPageByExtensionStatus();
    void signInSurvivesRestart();
    void userRefuses();
    void backendNeverAnswers();
    void noCodeWithinWait();
    void cancelGivesUpSignIn();
    void portTakenOpensNoBrowser();
    void refreshBeforeAndAfterExpiry();
    void failedRefreshLogsOut();
    void unlinkRevokes();
    void unexpectedStoredDataIsCleanedUp();

private:
    TwitchStandIn m_twitch;
    LensServerProcess m_lensServer;
};

void TwitchAuthTest::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral("tst_twitchauth"));
    registerMetaTypes();
    qputenv("GLINT_WEB_RESOURCES", GLINT_WEB_RESOURCES_DIR);
    qputenv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
    QVERIFY(m_twitch.start());
    qputenv("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl().toUtf8());
    qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
    QVERIFY(m_lensServer.isReady());
    QVERIFY(m_lensServer.start(m_twitch.lensServerArguments()));
}

// Each case starts without a login from an earlier one.
void TwitchAuthTest::init()
{
    KeychainComponent keychain(QCoreApplication::applicationName());
    QSignalSpy done(&keychain, &KeychainComponent::storeFinished);
    keychain.remove();
    QVERIFY(done.wait(10000));
}

void TwitchAuthTest::signInShowsPageByExtensionStatus_data()
{
    QTest::addColumn<int>("extension");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("not installed") << int(TwitchStandIn::Extension::None) << QByteArray("One more step");
    QTest::newRow("not activated shows ready")
        << int(TwitchStandIn::Extension::Installed) << QByteArray("All set");
    QTest::newRow("activated") << int(TwitchStandIn::Extension::Active) << QByteArray("All set");
}

void TwitchAuthTest::signInShowsPageByExtensionStatus()
{
    QFETCH(int, extension);
    QFETCH(QByteArray, expected);
    m_twitch.setExtension(TwitchStandIn::Extension(extension));
    SignInBrowser browser;
    Program program(m_lensServer.baseUrl());
    QSignalSpy states(program.service.get(), &TwitchService::authStateChanged);
    const int exchanges = m_twitch.codeExchanges();

    program.act(ActionType::AuthorizeTwitch);
    QTRY_VERIFY_WITH_TIMEOUT(browser.tab && browser.tab->connected(), 10000);
    QCOMPARE(browser.opened.size(), 1);
    QCOMPARE(browser.opened.first(), program.helper()->authorizeUrl());
    QVERIFY(browser.opened.first().toEncoded().endsWith(
        "&response_type=code&scope=channel_read%20channel_subscriptions%20user:edit:broadcast"
        "%20channel:read:subscriptions%20bits:read"));
    QVERIFY(browser.redirect.toString().startsWith(QStringLiteral("http://localhost:8492/?code=")));

    QTRY_COMPARE_WITH_TIMEOUT(program.state(), TwitchAuthState::Authorized, 10000);
    QCOMPARE(m_twitch.codeExchanges(), exchanges + 1);
    QCOMPARE(states.size(), 3); // waiting for the code, for the token, authorized
    QCOMPARE(states.at(1).first().value<TwitchAuthState>(), TwitchAuthState::WaitingAccessToken);
    QVERIFY(program.store->authorized());
    QTRY_COMPARE(program.collector->ofType(ActionType::TwitchUserAuthorized).size(), 1);

    // The tab gets its page as soon as the extension check on Helix has
    // answered, well before the five seconds a missing answer would take.
    QElapsedTimer sinceTokens;
    sinceTokens.start();
    QVERIFY(browser.tab->waitClosed(HttpServer::kResultDelayMs));
    QVERIFY(sinceTokens.elapsed() < HttpServer::kResultDelayMs - 1000);
    const QByteArray body = browser.tab->body();
    QCOMPARE(browser.tab->answer(), kHtmlHead + QByteArray::number(body.size()) + "\n\n" + body);
    QVERIFY(body.contains(expected));
    QVERIFY(body.contains("Authorization Succeeded"));

    QTRY_COMPARE_WITH_TIMEOUT(program.store->currentUserName(), QStringLiteral("GlintStreamer"), 10000);
    QVERIFY(program.store->isPartnerAccount());
    QVERIFY(program.store->tokensRemembered());
    bool found = false;
    const OAuthTokens stored = storedTokens(&found);
    QVERIFY(found);
    QCOMPARE(stored.accessToken, program.service->authClient()->tokens().accessToken);
    QVERIFY(m_twitch.isAccessTokenValid(stored.accessToken.toStdString()));
}

// Without an extension answer the tab gets its page five seconds after the
// tokens came; the redirect server then closes, and the next start of the
// program is signed in from the credential store alone.
void TwitchAuthTest::signInSurvivesRestart()
{
    QString token;
    {
        // Helix takes the calls and never answers them.
        SilentBackend helix;
        qputenv("GLINT_TWITCH_HELIX_URL", helix.url().toUtf8() + "/");
        SignInBrowser browser;
        Program program(m_lensServer.baseUrl());
        program.act(ActionType::AuthorizeTwitch);
        QTRY_COMPARE_WITH_TIMEOUT(program.state(), TwitchAuthState::Authorized, 10000);
        QElapsedTimer sinceTokens;
        sinceTokens.start();
        QVERIFY(browser.tab->waitClosed(HttpServer::kResultDelayMs + 3000));
        QVERIFY(sinceTokens.elapsed() >= HttpServer::kResultDelayMs - 500);
        QVERIFY(browser.tab->body().contains("One more step"));
        QTRY_VERIFY_WITH_TIMEOUT(!program.helper()->server()->isListening(), HttpServer::kLingerMs + 3000);
        QTcpSocket probe;
        probe.connectToHost(QStringLiteral("127.0.0.1"), HttpServer::kPort);
        QVERIFY(!probe.waitForConnected(2000));
        token = program.service->authClient()->tokens().accessToken;
        qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
    }
    SignInBrowser browser;
    Program restarted(m_lensServer.baseUrl());
    QTRY_COMPARE_WITH_TIMEOUT(restarted.state(), TwitchAuthState::Authorized, 10000);
    QCOMPARE(restarted.service->authClient()->tokens().accessToken, token);
    QTRY_COMPARE_WITH_TIMEOUT(restarted.store->currentUserName(), QStringLiteral("GlintStreamer"), 10000);
    QVERIFY(browser.opened.isEmpty());
    QVERIFY(!restarted.helper()->server()->isListening());
}

void TwitchAuthTest::userRefuses()
{
    m_twitch.setUserRefuses(true);
    SignInBrowser browser;
    Program program(m_lensServer.baseUrl());
    const int exchanges = m_twitch.codeExchanges();
    program.act(ActionType::AuthorizeTwitch);
    QTRY_VERIFY_WITH_TIMEOUT(browser.tab, 10000);
    m_twitch.setUserRefuses(false);
    QVERIFY(browser.redirect.query().contains(QStringLiteral("error=access_denied")));
    QVERIFY(browser.tab->waitClosed(3000));
    QVERIFY(browser.tab->answer().startsWith(kHtmlHead));
    QVERIFY(browser.tab->body().contains("Authorization Failed"));
    QCOMPARE(program.state(), TwitchAuthState::WaitingAccessCode);
    QVERIFY(program.helper()->server()->isListening());
    QCOMPARE(m_twitch.codeExchanges(), exchanges);
}

void TwitchAuthTest::backendNeverAnswers()
{
    SilentBackend backend;
    SignInBrowser browser;
    Program program(backend.url());
    program.act(ActionType::AuthorizeTwitch);
    QTRY_COMPARE_WITH_TIMEOUT(program.state(), TwitchAuthState::WaitingAccessToken, 10000);
    QElapsedTimer sinceCode;
    sinceCode.start();
    QVERIFY(
        browser.tab->waitClosed(TwitchAuthorizationHelper::kTokenWaitMs + HttpServer::kResultDelayMs + 3000));
    QVERIFY(sinceCode.elapsed() >=
            TwitchAuthorizationHelper::kTokenWaitMs + HttpServer::kResultDelayMs - 1000);
    QVERIFY(browser.tab->body().contains("Authorization Failed"));
    QCOMPARE(program.state(), TwitchAuthState::WaitingAccessToken);
}

void TwitchAuthTest::noCodeWithinWait()
{
    Program program(m_lensServer.baseUrl());
    program.helper()->setCodeWaitInterval(1500);
    SignInBrowser browser;
    browser.follow = false; // the user never signs in
    program.act(ActionType::AuthorizeTwitch);
    QTRY_VERIFY(program.helper()->server()->isListening());
    QTRY_VERIFY_WITH_TIMEOUT(!program.helper()->server()->isListening(), 5000);
    QCOMPARE(program.state(), TwitchAuthState::WaitingAccessCode);
    BrowserTab late(HttpServer::kPort, "GET /?code=late HTTP/1.1\r\n\r\n");
    QVERIFY(late.waitClosed(3000));
    QVERIFY(!late.connected());
    QVERIFY(late.answer().isEmpty());
}

void TwitchAuthTest::cancelGivesUpSignIn()
{
    SignInBrowser browser;
    browser.follow = false;
    Program program(m_lensServer.baseUrl());
    const int revocations = m_twitch.revocations();
    program.act(ActionType::AuthorizeTwitch);
    QTRY_COMPARE(program.state(), TwitchAuthState::WaitingAccessCode);
    QVERIFY(program.helper()->server()->isListening());
    program.act(ActionType::DeauthorizeTwitch);
    QTRY_COMPARE(program.state(), TwitchAuthState::NotAuthorized);
    QVERIFY(!program.helper()->server()->isListening());
    QTRY_COMPARE(program.collector->ofType(ActionType::TwitchUserDeauthorized).size(), 1);
    QVERIFY(program.popups().isEmpty());
    QCOMPARE(m_twitch.revocations(), revocations);
}

void TwitchAuthTest::portTakenOpensNoBrowser()
{
    QTcpServer squatter;
    QVERIFY(squatter.listen(QHostAddress::LocalHost, HttpServer::kPort));
    SignInBrowser browser;
    Program program(m_lensServer.baseUrl());
    QSignalSpy states(program.service.get(), &TwitchService::authStateChanged);
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Can't listen on port 8492"));
    program.act(ActionType::AuthorizeTwitch);
    QTRY_COMPARE(states.size(), 2);
    QCOMPARE(program.state(), TwitchAuthState::Unknown);
    QVERIFY(browser.opened.isEmpty());
}

// A token about to expire is refreshed through the backend while the
// program runs; one that expired while the program was closed is refreshed
// at start. Either way the new record replaces the stored one.
void TwitchAuthTest::refreshBeforeAndAfterExpiry()
{
    const int refreshes = m_twitch.refreshes();
    QVERIFY(storeTokens(tokensExpiringIn(m_twitch.issueTokens(), -3 * 86400)));
    Program program(m_lensServer.baseUrl());
    QSignalSpy authorized(program.service->authClient(), &TwitchAuthClient::authorized);
    QVERIFY(authorized.wait(10000));
    QCOMPARE(m_twitch.refreshes(), refreshes + 1);
    const OAuthTokens first = authorized.first().first().value<OAuthTokens>();
    QVERIFY(!first.needsRefresh());
    QCOMPARE(program.state(), TwitchAuthState::Authorized);

    // Close to its end the token is refreshed before it runs out.
    program.service->authClient()->installTokens(
        tokensExpiringIn(m_twitch.issueTokens(), OAuthTokens::kRefreshMarginSecs + 3));
    QVERIFY(program.service->authClient()->msUntilCheck() <= 4000);
    QCOMPARE(authorized.size(), 2); // the token is good for a few seconds more
    QVERIFY(authorized.wait(10000));
    QCOMPARE(m_twitch.refreshes(), refreshes + 2);
    const OAuthTokens second = authorized.last().first().value<OAuthTokens>();
    QVERIFY(m_twitch.isAccessTokenValid(second.accessToken.toStdString()));
    QTest::qWait(500); // the record is written after the announcement
    bool found = false;
    QCOMPARE(storedTokens(&found).accessToken, second.accessToken);
    QCOMPARE(program.collector->ofType(ActionType::ShowPopupMessage).size(), 0);
}

void TwitchAuthTest::failedRefreshLogsOut()
{
    QVERIFY(storeTokens(tokensExpiringIn(m_twitch.issueTokens(), -60)));
    m_twitch.forgetRefreshTokens();
    Program program(m_lensServer.baseUrl());
    QTRY_COMPARE_WITH_TIMEOUT(program.state(), TwitchAuthState::NotAuthorized, 10000);
    QTRY_COMPARE(program.popups(), QStringList{QStringLiteral("We've logged you out")});
    QTRY_COMPARE(program.collector->ofType(ActionType::TwitchUserDeauthorized).size(), 1);
    QVERIFY(program.network.accessToken().isEmpty());
    QTest::qWait(500);
    bool found = true;
    storedTokens(&found);
    QVERIFY(!found);
}

void TwitchAuthTest::unlinkRevokes()
{
    const auto issued = m_twitch.issueTokens();
    QVERIFY(storeTokens(tokensExpiringIn(issued, 3600)));
    Program program(m_lensServer.baseUrl());
    QTRY_COMPARE_WITH_TIMEOUT(program.store->currentUserName(), QStringLiteral("GlintStreamer"), 10000);
    const int revocations = m_twitch.revocations();

    program.act(ActionType::DeauthorizeTwitch);
    QTRY_COMPARE_WITH_TIMEOUT(program.state(), TwitchAuthState::NotAuthorized, 10000);
    QCOMPARE(m_twitch.revocations(), revocations + 1);
    QVERIFY(!m_twitch.isAccessTokenValid(issued.first));
    QTRY_COMPARE(program.popups(), QStringList{QStringLiteral("We've logged you out")});
    QVERIFY(program.store->currentUserName().isEmpty());
    QTest::qWait(500);
    bool found = true;
    storedTokens(&found);
    QVERIFY(!found);

    // Unlinking again has nothing to revoke and says nothing.
    program.act(ActionType::ClearAppIntegrations);
    QTest::qWait(500);
    QCOMPARE(m_twitch.revocations(), revocations + 1);
    QCOMPARE(program.popups().size(), 1);
}

// Whatever else sits under our key in the credential store is removed, and
// the program starts signed out.
void TwitchAuthTest::unexpectedStoredDataIsCleanedUp()
{
    KeychainComponent keychain(QCoreApplication::applicationName());
    for (const QByteArray &junk : {QByteArray("[1,2,3]"), QByteArray("not json"),
                                   QByteArray("{\"access_token\":\"a\"}"), QByteArray(100000, '{')}) {
        QKeychain::WritePasswordJob write(keychain.serviceName());
        write.setKey(KeychainComponent::kKey);
        write.setBinaryData(junk);
        write.setAutoDelete(false);
        QSignalSpy writeDone(&write, &QKeychain::Job::finished);
        write.start();
        QVERIFY(writeDone.wait(10000));
        QCOMPARE(write.error(), QKeychain::NoError);

        QSignalSpy loaded(&keychain, &KeychainComponent::tokensLoaded);
        QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
        QSignalSpy removed(&keychain, &KeychainComponent::storeFinished);
        QTest::ignoreMessage(QtWarningMsg, "Unexpected data in OAuth keychain, cleaning up");
        keychain.load();
        QVERIFY(finished.wait(10000));
        QVERIFY(loaded.isEmpty() && !finished.first().first().toBool());
        QVERIFY(removed.count() == 1 || removed.wait(10000));
        bool found = true;
        storedTokens(&found);
        QVERIFY(!found);
    }
}

QTEST_MAIN(TwitchAuthTest)
#include "tst_twitchauth.moc"
