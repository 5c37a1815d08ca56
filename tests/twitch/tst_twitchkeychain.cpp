// The token record in the credential store. Run twice by ctest: inside a
// private D-Bus session with gnome-keyring (the store functions), and with
// no session bus at all (noCredentialStore).
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <keychaincomponent.h>
#include <networkmanager.h>
#include <qt5keychain/keychain.h>
#include <twitchauthclient.h>
#include <twitchservice.h>

using namespace VCam;

class TwitchKeychainTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void recordRoundTrip();
    void unexpectedDataIsCleanedUp();
    void noCredentialStore();

private:
    static OAuthTokens sample();
    static bool wait(QSignalSpy &spy) { return !spy.isEmpty() || spy.wait(10000); }
};

void TwitchKeychainTest::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral("tst_twitchkeychain"));
}

OAuthTokens TwitchKeychainTest::sample()
{
    OAuthTokens tokens;
    tokens.fromJson({{"issued_at", 1700000000},
                     {"expires_in", 14400},
                     {"access_token", "acc-ü"},
                     {"refresh_token", "ref"}});
    return tokens;
}

void TwitchKeychainTest::recordRoundTrip()
{
    KeychainComponent writer(QCoreApplication::applicationName());
    QCOMPARE(writer.serviceName(), QStringLiteral("com.glint.tst_twitchkeychain.OAuthTokens"));
    QSignalSpy written(&writer, &KeychainComponent::storeFinished);
    writer.store(sample());
    QVERIFY(wait(written));
    QVERIFY(written.first().first().toBool());

    // What the store holds is the written form, readable by anyone with the key.
    QKeychain::ReadPasswordJob raw(writer.serviceName());
    raw.setKey(KeychainComponent::kKey);
    raw.setAutoDelete(false);
    QSignalSpy rawDone(&raw, &QKeychain::Job::finished);
    raw.start();
    QVERIFY(wait(rawDone));
    const QJsonObject stored = QJsonDocument::fromJson(raw.binaryData()).object();
    QCOMPARE(stored, sample().toJson());
    QVERIFY(!stored.contains("expires_in"));

    KeychainComponent reader(QCoreApplication::applicationName());
    QSignalSpy loaded(&reader, &KeychainComponent::tokensLoaded);
    QSignalSpy finished(&reader, &KeychainComponent::loadFinished);
    reader.load();
    QVERIFY(wait(finished));
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded.first().first().value<OAuthTokens>().toJson(), sample().toJson());
    QVERIFY(reader.isPersistent());

    QSignalSpy removed(&reader, &KeychainComponent::storeFinished);
    reader.remove();
    QVERIFY(wait(removed));
    finished.clear();
    reader.load();
    QVERIFY(wait(finished));
    QCOMPARE(finished.first().first().toBool(), false);
    QCOMPARE(loaded.size(), 1);
}

void TwitchKeychainTest::unexpectedDataIsCleanedUp()
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
        QVERIFY(wait(writeDone));
        QCOMPARE(write.error(), QKeychain::NoError);

        QSignalSpy loaded(&keychain, &KeychainComponent::tokensLoaded);
        QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
        QSignalSpy removed(&keychain, &KeychainComponent::storeFinished);
        QTest::ignoreMessage(QtWarningMsg, "Unexpected data in OAuth keychain, cleaning up");
        keychain.load();
        QVERIFY(wait(finished));
        QVERIFY(loaded.isEmpty());
        QVERIFY(wait(removed));

        QKeychain::ReadPasswordJob read(keychain.serviceName());
        read.setKey(KeychainComponent::kKey);
        read.setAutoDelete(false);
        QSignalSpy readDone(&read, &QKeychain::Job::finished);
        read.start();
        QVERIFY(wait(readDone));
        QCOMPARE(read.error(), QKeychain::EntryNotFound);
    }
}

// No credential store answers: every attempt is logged, nothing is written
// anywhere else, and the interface learns that the login is for this run.
void TwitchKeychainTest::noCredentialStore()
{
    if (qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS") != QLatin1String("unix:path=/nonexistent/bus"))
        QSKIP("runs only without a session bus");
    NetworkManager network(QStringLiteral("http://127.0.0.1:9/vc/v1"), [] { return QString(); });
    KeychainComponent keychain(QCoreApplication::applicationName());
    TwitchService service(&network, &keychain);
    QSignalSpy remembered(&service, &TwitchService::tokensRememberedChanged);
    QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to read twitch from keychain: .+"));
    service.start();
    QVERIFY(wait(finished));
    QVERIFY(!service.tokensRemembered());
    QCOMPARE(remembered.size(), 1);

    QSignalSpy written(&keychain, &KeychainComponent::storeFinished);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to write twitch to keychain: .+"));
    keychain.store(sample());
    QVERIFY(wait(written));
    QCOMPARE(written.first().first().toBool(), false);
    QVERIFY(!service.tokensRemembered());
    // Tokens the sign-in brings are still used for this run.
    service.authClient()->installTokens(sample());
    QCOMPARE(network.accessToken(), sample().accessToken);
}

QTEST_MAIN(TwitchKeychainTest)
#include "tst_twitchkeychain.moc"
