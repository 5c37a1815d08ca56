// The EventSub and PubSub clients against the stand-in's WebSocket servers
// and Helix: sessions and subscriptions, event kinds, session moves, nonce
// checks, keepalive and ping loss, and servers that misbehave.
#include "liveeventsstandin.h"
#include "twitchstandin.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <ctime>
#include <networkmanager.h>
#include <twitcheventsubhelper.h>
#include <twitchsubscriptionhelper.h>

using namespace VCam;

namespace {

const QStringList kAllTypes{"channel.cheer", "channel.subscribe", "channel.subscription.message"};
const QString kSubTopic = QStringLiteral("channel-subscribe-events-v1.141981764");
const QString kBitsTopic = QStringLiteral("channel-bits-events-v1.141981764");

QJsonObject object(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).object();
}

// A stand-in server, configured before it starts, and the program's client
// on it with a token of the stand-in.
template <typename Helper> struct Session
{
    Session(TwitchStandIn &twitch, const std::function<void(LiveEventsStandIn &)> &configure = {},
            bool validToken = true)
        : server(&twitch), network(QStringLiteral("http://127.0.0.1:9/vc/v1"), [] { return QString(); }),
          helper(makeHelper()), subscriptions(helper.get(), &Helper::subscriptionReceived),
          bits(helper.get(), &Helper::bitsReceived), twitch(twitch)
    {
        if (configure)
            configure(server);
        server.start();
        const QString token = validToken ? QString::fromStdString(twitch.issueTokens().first) : "not0a0token";
        network.setAccessToken(token);
        helper->setUrl(QUrl(isEventSub ? server.eventSubUrl() : server.pubSubUrl()));
        helper->setAccessToken(token);
        helper->setTwitchUserID(QString::fromStdString(twitch.user().id));
    }
    static constexpr bool isEventSub = std::is_same_v<Helper, TwitchEventSubHelper>;
    std::unique_ptr<Helper> makeHelper()
    {
        if constexpr (isEventSub)
            return std::make_unique<Helper>(&network);
        else
            return std::make_unique<Helper>();
    }
    // All three EventSub subscriptions exist, for the client's session.
    bool subscribed()
    {
        return QTest::qWaitFor([&] { return helper->activeSubscriptions() == kAllTypes; }, 5000) &&
               helper->sessionId() == server.lastSessionId() &&
               twitch.subscriptionsOf(server.lastSessionId().toStdString()).size() == 3;
    }
    SubscribeEvent subscription(int i) const
    {
        return subscriptions.at(i).first().template value<SubscribeEvent>();
    }
    BitsEvent bitsEvent(int i) const { return bits.at(i).first().template value<BitsEvent>(); }

    LiveEventsStandIn server;
    NetworkManager network;
    std::unique_ptr<Helper> helper;
    QSignalSpy subscriptions;
    QSignalSpy bits;
    TwitchStandIn &twitch;
};
using EventSub = Session<TwitchEventSubHelper>;
using PubSub = Session<TwitchSubscriptionHelper>;

QJsonObject pubSubSubscription(const QString &plan, const QString &context = QStringLiteral("sub"))
{
    return object(QStringLiteral(R"({"user_name": "cool_user", "channel_name": "glintstreamer", "months": 3,
                                     "sub_plan": "%1", "context": "%2"})")
                      .arg(plan, context));
}

QJsonObject pubSubCheer(const QString &bits)
{
    return object(QStringLiteral(R"({"message_type": "bits_event", "data": {"user_name": "cool_user",
                                     "bits_used": %1, "total_bits_used": 1000}})")
                      .arg(bits));
}

double cpuSecondsSince(std::clock_t start)
{
    return double(std::clock() - start) / CLOCKS_PER_SEC;
}

} // namespace

class TwitchSessionsTest : public QObject
{
    Q_OBJECT
    TwitchStandIn m_twitch;

private slots:
    void initTestCase()
    {
        qputenv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
        QVERIFY(m_twitch.start());
        qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
    }

    void eventSubMapsEvents()
    {
        EventSub s(m_twitch);
        QVERIFY(s.subscribed());
        const QString resub =
            R"({"tier": "3000", "cumulative_months": 7, "message": {"text": "Love the lenses"}})";
        QVERIFY(s.server.subscribe(QStringLiteral("2000")));
        QVERIFY(s.server.notify(QStringLiteral("channel.subscription.message"), object(resub)));
        QVERIFY(s.server.notify(QStringLiteral("channel.subscribe"),
                                object(R"({"tier": "1000", "is_gift": true})")));
        QVERIFY(s.server.notify(
            QStringLiteral("channel.cheer"),
            object(R"({"is_anonymous": true, "user_login": null, "user_name": null, "bits": 5})")));
        QTRY_COMPARE(s.subscriptions.size(), 3);
        // The tier reaches the lens switch (tst_twitchlive); here, the kind.
        QCOMPARE(s.subscription(0).context, QStringLiteral("sub"));
        QCOMPARE(s.subscription(1).subPlan, QStringLiteral("3000"));
        QCOMPARE(s.subscription(1).context, QStringLiteral("resub"));
        QCOMPARE(s.subscription(1).months, 7);
        QCOMPARE(s.subscription(2).context, QStringLiteral("subgift"));
        // A named cheer reaches the lens (tst_twitchlive); here, an anonymous one.
        QTRY_COMPARE(s.bits.size(), 1);
        QCOMPARE(s.bitsEvent(0).bitsUsed, 5);
        QCOMPARE(s.bitsEvent(0).userName, QString());

        QCOMPARE(s.server.connections(), 1);
    }

    void eventSubDropsMalformedFrames()
    {
        EventSub s(m_twitch);
        QVERIFY(s.subscribed());
        const QString session = s.helper->sessionId();
        int ids = 0;
        // A message of the given type and payload, that may name a subscription type.
        const auto frame = [&](const QString &type, const QString &payload,
                               const QString &subscription = {}) {
            return QStringLiteral(R"({"metadata": {"message_id": "%1", "message_type": "%2",
                                      "subscription_type": "%3"}, "payload": %4})")
                .arg(++ids)
                .arg(type, subscription, payload);
        };
        const auto notification = [&](const QString &type, const QString &event) {
            return frame("notification",
                         QStringLiteral(R"({"subscription": {"type": "%1"}, "event": %2})").arg(type, event),
                         type);
        };
        const QStringList frames{
            "this is not JSON",
            "[1, 2, 3]",
            R"({"metadata": "notification", "payload": {}})",
            R"({"metadata": {"message_type": 5}, "payload": {}})",
            frame("session_party", "{}"),
            notification("channel.raid", R"({"viewers": 5})"), // nobody subscribed to it
            // the tier as a number, months as text, bits as text, no event object
            notification("channel.subscribe", R"({"user_login": "x", "tier": 1000})"),
            notification("channel.subscription.message", R"({"tier": "1000", "cumulative_months": "7"})"),
            notification("channel.cheer", R"({"bits": "lots"})"),
            notification("channel.subscribe", "[]"),
            // a welcome without a usable session must not replace the one we have
            frame("session_welcome", R"({"session": {"id": 7}})"),
            // a move to a foreign host is refused
            frame("session_reconnect", "{\"session\": {\"reconnect_url\": \"wss://example.invalid/ws\"}}"),
            frame("notification", "{\"pad\": \"" + QString(1024 * 1024, 'a') + "\"}", "channel.subscribe"),
        };
        for (const QString &text : frames)
            s.server.sendRaw(text);
        QVERIFY(s.server.subscribe(QStringLiteral("1000")));
        QTRY_COMPARE(s.subscriptions.size(), 1);
        QCOMPARE(s.subscription(0).subPlan, QStringLiteral("1000"));
        QCOMPARE(s.bits.size(), 0);
        QCOMPARE(s.helper->sessionId(), session);
        QCOMPARE(s.server.connections(), 1);
    }

    // Each move lands in a new session that holds the old one's
    // subscriptions: nothing is created again and events keep coming.
    void eventSubReconnectKeepsEvents()
    {
        EventSub s(m_twitch);
        QVERIFY(s.subscribed());
        const int requests = m_twitch.subscriptionRequests();
        for (int move = 1; move <= 2; ++move) {
            const QString before = s.helper->sessionId();
            s.server.requestReconnect();
            QTRY_VERIFY(s.helper->sessionId() != before);
            QCOMPARE(s.helper->sessionId(), s.server.lastSessionId());
            QTRY_COMPARE(s.server.openSockets(), 1); // the old socket was closed
            QCOMPARE(s.server.connections(), move + 1);
            QCOMPARE(m_twitch.subscriptionRequests(), requests);
            QCOMPARE(s.helper->activeSubscriptions(), kAllTypes);
            QVERIFY(s.server.subscribe(QStringLiteral("3000")));
            QTRY_COMPARE(s.subscriptions.size(), move);
        }
    }

    void eventSubMissedKeepaliveReconnects()
    {
        EventSub s(m_twitch, [](LiveEventsStandIn &server) { server.setKeepaliveSeconds(1); });
        QVERIFY(s.subscribed());
        const QString before = s.helper->sessionId();
        // Keepalives keep a quiet session alive, and their absence ends it.
        QTest::qWait(3000);
        QCOMPARE(s.server.connections(), 1);
        s.server.setKeepalivesPaused(true);
        QTRY_COMPARE_WITH_TIMEOUT(s.server.connections(), 2, 6000);
        s.server.setKeepalivesPaused(false);
        QVERIFY(s.subscribed() && s.helper->sessionId() != before);
        QVERIFY(s.server.subscribe(QStringLiteral("1000")));
        QTRY_COMPARE(s.subscriptions.size(), 1);
    }

    // LISTEN with a fresh nonce for both topics; events parsed; malformed
    // messages dropped without losing the connection; a refused token
    // reported.
    void pubSubListensParsesAndDropsMalformed()
    {
        PubSub s(m_twitch);
        QTRY_COMPARE(s.server.listens(), 1);
        QCOMPARE(s.server.lastTopics(), (QStringList{kBitsTopic, kSubTopic}));
        QVERIFY(
            QRegularExpression(QStringLiteral("^[A-Za-z0-9_-]{20}$")).match(s.server.lastNonce()).hasMatch());
        const auto message = [](const QString &topic, const QString &inner) {
            return QJsonDocument(QJsonObject{{"type", "MESSAGE"},
                                             {"data", QJsonObject{{"topic", topic}, {"message", inner}}}})
                .toJson();
        };
        const QList<QByteArray> frames{
            "not JSON at all",
            R"({"type": 5})",
            R"({"type": "MESSAGE", "data": "text"})",
            R"({"type": "MESSAGE", "data": {"topic": 3, "message": "{}"}})",
            R"({"type": "SOMETHING_NEW"})",
            message(QStringLiteral("whispers.141981764"), QStringLiteral("{}")),
            message(kSubTopic, QStringLiteral("{not json")),
            message(kSubTopic, R"({"sub_plan": "1000", "months": "three", "context": "sub"})"),
            message(kBitsTopic, QJsonDocument(pubSubCheer("\"five\"")).toJson()),
            "{\"type\":\"MESSAGE\",\"pad\":\"" + QByteArray(1024 * 1024, 'x') + "\"}",
        };
        for (const QByteArray &frame : frames)
            s.server.sendRaw(QString::fromUtf8(frame));
        QCOMPARE(s.server.publish(kSubTopic, pubSubSubscription(QStringLiteral("Prime"))), 1);
        QCOMPARE(s.server.publish(kBitsTopic, pubSubCheer("100")), 1);
        QTRY_COMPARE(s.bits.size(), 1);
        QTRY_COMPARE(s.subscriptions.size(), 1);
        // The plan reaches the lens switch (tst_twitchlive); here, the rest.
        QCOMPARE(s.subscription(0).months, 3);
        QCOMPARE(s.bitsEvent(0).bitsUsed, 100);
        QCOMPARE(s.bitsEvent(0).totalBitsUsed, 1000);
        QCOMPARE(s.server.connections(), 1);
        QCOMPARE(s.server.openSockets(), 1);

        PubSub refused(m_twitch, {}, false);
        QSignalSpy reported(refused.helper.get(), &TwitchSubscriptionHelper::accessTokenNotValid);
        QVERIFY(reported.wait(5000));
        QCOMPARE(refused.server.publish(kSubTopic, pubSubSubscription(QStringLiteral("1000"))), 0);
    }

    void pubSubMissingPongReconnects()
    {
        PubSub s(m_twitch);
        s.helper->setPingIntervals(400, 300);
        s.helper->connectToPubSub();
        QTRY_VERIFY(s.server.listens() >= 1 && s.server.openSockets() == 1);
        QTRY_VERIFY(s.server.pings() >= 2); // pongs keep the connection
        const int connections = s.server.connections();
        s.server.setPongsPaused(true);
        QTRY_VERIFY_WITH_TIMEOUT(s.server.connections() > connections, 3000);
        s.server.setPongsPaused(false);
        QTRY_VERIFY(s.server.openSockets() == 1 && s.server.listens() > 1);
        QCOMPARE(s.server.publish(kSubTopic, pubSubSubscription(QStringLiteral("1000"))), 1);
        QTRY_COMPARE(s.subscriptions.size(), 1);
    }

    // A server that drops every session soon after it starts gets a calm
    // reconnect, not a storm.
    void closingServerIsNotHammered()
    {
        const std::clock_t start = std::clock();
        EventSub s(m_twitch, [](LiveEventsStandIn &server) { server.setCloseAfterWelcomeMs(300); });
        QTest::qWait(8000);
        // Delays of 1, 2 and 4 seconds after the drops at about 0.3, 1.6 and
        // 3.9 seconds: four connections, five at most on a slow machine.
        QVERIFY2(s.server.connections() >= 3 && s.server.connections() <= 5,
                 qPrintable(QString::number(s.server.connections())));
        QVERIFY2(cpuSecondsSince(start) < 2.0, qPrintable(QString::number(cpuSecondsSince(start))));
        QVERIFY(s.helper->reconnectDelay() >= 8000);
    }
};

QTEST_MAIN(TwitchSessionsTest)
#include "tst_twitchsessions.moc"
