// The PubSub client against the stand-in's PubSub server: LISTEN, events,
// nonce checks, ping and pong, reconnects, malformed messages.
#include "pubsubstandin.h"
#include "twitchstandin.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <ctime>
#include <twitchsubscriptionhelper.h>

using namespace VCam;

namespace {

struct Client
{
    Client(TwitchStandIn &twitch, PubSubStandIn &server, bool validToken = true)
        : subscriptions(&helper, &TwitchSubscriptionHelper::subscriptionReceived),
          bits(&helper, &TwitchSubscriptionHelper::bitsReceived),
          refused(&helper, &TwitchSubscriptionHelper::accessTokenNotValid)
    {
        helper.setUrl(QUrl(server.url()));
        helper.setAccessToken(validToken ? QString::fromStdString(twitch.issueTokens().first)
                                         : QStringLiteral("not0a0token"));
        helper.setTwitchUserID(QString::fromStdString(twitch.user().id));
    }

    TwitchSubscriptionHelper helper;
    QSignalSpy subscriptions;
    QSignalSpy bits;
    QSignalSpy refused;
};

const QString kSubTopic = QStringLiteral("channel-subscribe-events-v1.141981764");
const QString kBitsTopic = QStringLiteral("channel-bits-events-v1.141981764");

QJsonObject subscription(const QString &plan, const QString &context)
{
    return {{"user_name", "cool_user"},
            {"display_name", "Cool_User"},
            {"channel_name", "glintstreamer"},
            {"user_id", "1337"},
            {"channel_id", "141981764"},
            {"time", "2026-11-23T01:00:00Z"},
            {"sub_plan", plan},
            {"sub_plan_name", "Channel Subscription"},
            {"months", 3},
            {"context", context}};
}

QJsonObject cheer(int bits)
{
    const QJsonObject data{
        {"user_name", "cool_user"},  {"channel_name", "glintstreamer"}, {"user_id", "1337"},
        {"channel_id", "141981764"}, {"time", "2026-11-23T01:00:00Z"},  {"chat_message", "cheer100"},
        {"bits_used", bits},         {"total_bits_used", 1000},         {"context", "cheer"}};
    return {{"data", data}, {"version", "1.0"}, {"message_type", "bits_event"}, {"message_id", "abc"}};
}

double cpuSeconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

} // namespace

class PubSubTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(m_twitch.start()); }
    void listensToBothTopicsAndParsesEvents();
    void malformedMessagesAreDropped();
    void foreignNoncesCloseAfterThreeRetries();
    void badAuthIsReported();
    void missingPongReconnects();
    void closingServerIsNotHammered();

private:
    TwitchStandIn m_twitch;
};

void PubSubTest::listensToBothTopicsAndParsesEvents()
{
    PubSubStandIn server(&m_twitch);
    QVERIFY(server.start());
    Client client(m_twitch, server);
    QTRY_COMPARE(server.listens(), 1);
    QCOMPARE(server.lastTopics(), (QStringList{kBitsTopic, kSubTopic}));
    QVERIFY(QRegularExpression(QStringLiteral("^[A-Za-z0-9_-]{20}$")).match(server.lastNonce()).hasMatch());

    QCOMPARE(server.publish(kSubTopic, subscription(QStringLiteral("Prime"), QStringLiteral("sub"))), 1);
    QCOMPARE(server.publish(kBitsTopic, cheer(100)), 1);
    QTRY_COMPARE(client.subscriptions.size(), 1);
    QTRY_COMPARE(client.bits.size(), 1);
    // The plan reaches the lens switch (tst_twitchlive); here, the rest.
    QCOMPARE(client.subscriptions.first().first().value<SubscribeEvent>().months, 3);
    const auto bits = client.bits.first().first().value<BitsEvent>();
    QCOMPARE(bits.bitsUsed, 100);
    QCOMPARE(bits.totalBitsUsed, 1000);
}

void PubSubTest::malformedMessagesAreDropped()
{
    PubSubStandIn server(&m_twitch);
    QVERIFY(server.start());
    Client client(m_twitch, server);
    QTRY_COMPARE(server.listens(), 1);
    const auto message = [](const QString &topic, const QString &inner) {
        return QString::fromUtf8(
            QJsonDocument(
                QJsonObject{{"type", "MESSAGE"}, {"data", QJsonObject{{"topic", topic}, {"message", inner}}}})
                .toJson(QJsonDocument::Compact));
    };
    QJsonObject wrongMonths = subscription(QStringLiteral("1000"), QStringLiteral("sub"));
    wrongMonths.insert("months", "three");
    QJsonObject wrongBits = cheer(5);
    wrongBits.insert("data", QJsonObject{{"bits_used", "five"}});
    const QStringList frames{
        QStringLiteral("not JSON at all"),
        QStringLiteral(R"({"type": 5})"),
        QStringLiteral(R"({"type": "MESSAGE", "data": "text"})"),
        QStringLiteral(R"({"type": "MESSAGE", "data": {"topic": 3, "message": "{}"}})"),
        message(QStringLiteral("whispers.141981764"), QStringLiteral("{}")),
        message(kSubTopic, QStringLiteral("{not json")),
        message(kSubTopic, QString::fromUtf8(QJsonDocument(wrongMonths).toJson())),
        message(kBitsTopic, QString::fromUtf8(QJsonDocument(wrongBits).toJson())),
        QStringLiteral(R"({"type": "SOMETHING_NEW"})"),
        QStringLiteral(R"({"type":"MESSAGE","pad":")") + QString(1024 * 1024, 'x') + QStringLiteral("\"}"),
    };
    for (const QString &frame : frames)
        server.sendRaw(frame);
    QCOMPARE(server.publish(kSubTopic, subscription(QStringLiteral("2000"), QStringLiteral("resub"))), 1);
    QTRY_COMPARE(client.subscriptions.size(), 1);
    QCOMPARE(client.subscriptions.first().first().value<SubscribeEvent>().subPlan, QStringLiteral("2000"));
    QCOMPARE(client.bits.size(), 0);
    QCOMPARE(server.connections(), 1);
    QCOMPARE(server.openSockets(), 1);
}

void PubSubTest::foreignNoncesCloseAfterThreeRetries()
{
    PubSubStandIn server(&m_twitch);
    server.setForeignNonces(true);
    QVERIFY(server.start());
    Client client(m_twitch, server);
    // The first LISTEN and three more, then the socket is closed.
    QTRY_COMPARE(server.listens(), 4);
    QTRY_COMPARE(server.openSockets(), 0);
    QTest::qWait(500);
    QCOMPARE(server.connections(), 1); // and stays closed
    QCOMPARE(client.helper.state(), QAbstractSocket::UnconnectedState);
}

void PubSubTest::badAuthIsReported()
{
    PubSubStandIn server(&m_twitch);
    QVERIFY(server.start());
    Client client(m_twitch, server, false);
    QTRY_COMPARE(client.refused.size(), 1);
    QCOMPARE(server.publish(kSubTopic, subscription(QStringLiteral("1000"), QStringLiteral("sub"))), 0);
}

void PubSubTest::missingPongReconnects()
{
    PubSubStandIn server(&m_twitch);
    QVERIFY(server.start());
    Client client(m_twitch, server);
    client.helper.setPingIntervals(400, 300);
    client.helper.connectToPubSub();
    QTRY_VERIFY(server.listens() >= 1 && server.openSockets() == 1);
    QTRY_VERIFY(server.pings() >= 2);
    const int connections = server.connections();
    QCOMPARE(server.connections(), connections); // pongs keep it
    server.setPongsPaused(true);
    QTRY_VERIFY_WITH_TIMEOUT(server.connections() > connections, 3000);
    server.setPongsPaused(false);
    QTRY_COMPARE(server.openSockets(), 1);
    QTRY_VERIFY(server.listens() > 1);
    QCOMPARE(server.publish(kSubTopic, subscription(QStringLiteral("1000"), QStringLiteral("sub"))), 1);
    QTRY_COMPARE(client.subscriptions.size(), 1);
}

void PubSubTest::closingServerIsNotHammered()
{
    PubSubStandIn server(&m_twitch);
    server.setCloseAfterListenMs(1000);
    QVERIFY(server.start());
    const double cpuBefore = cpuSeconds();
    Client client(m_twitch, server);
    QTest::qWait(4500);
    // A reconnect a few milliseconds after each drop: one connection per
    // second the server allows, no storm in between.
    QVERIFY2(server.connections() >= 3 && server.connections() <= 6,
             qPrintable(QString::number(server.connections())));
    QVERIFY2(cpuSeconds() - cpuBefore < 1.5, qPrintable(QString::number(cpuSeconds() - cpuBefore)));
    QCOMPARE(client.helper.reconnectDelay(), 2); // each LISTEN started it over
}

QTEST_MAIN(PubSubTest)
#include "tst_twitchpubsub.moc"
