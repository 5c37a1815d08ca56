// Live events end to end: the program's Twitch service and store beside the
// real lens store, over the real lens server, with the Twitch stand-in's
// Helix and its EventSub and PubSub servers. Subscriptions switch the lens
// the lens store applies and switch back; bits and subscriptions without a
// lens reach the running lens as external events.
#include "lensserverprocess.h"
#include "liveeventsstandin.h"
#include "twitchprogram.h"
#include "twitchstandin.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <externalevent.h>
#include <lenscommand.h>
#include <lensinfostorage.h>
#include <lensstore.h>
#include <metatypes.h>
#include <networklensprovider.h>
#include <twitcheventsubhelper.h>

using namespace VCam;

namespace {

const LensId kMainLens = QStringLiteral("film-noir");
// The lens of each role: any tier, tier 1, 2 and 3.
const LensId kTierLenses[4] = {QStringLiteral("sunglasses"), QStringLiteral("confetti"),
                               QStringLiteral("fireworks"), QStringLiteral("heart-eyes")};

// The program's Twitch side with the lens store before it, as start-up
// wires them.
struct Rig : TwitchProgram
{
    Rig(const LensServerProcess &server, const QString &cacheRoot, const nlohmann::json &twitchSettings)
        : TwitchProgram(server.baseUrl()),
          provider(new NetworkLensProvider(&network, cacheRoot, server.publicKey())),
          lensStore(std::make_shared<LensStore>(dispatcher, provider, &provider->cache(), &network, &storage))
    {
        store->loadSettings(twitchSettings);
        start(lensStore);
    }
    ~Rig() { shutdown(); } // while the lens store's parts are still here
    void lens(ActionType type, const LensId &lensId, int kind = 0)
    {
        LensCommand command;
        command.lensId = lensId;
        command.kind = kind;
        command.context = LensActionContext::LensExplorer;
        send(type, QVariant::fromValue(command));
    }
    bool subscribed()
    {
        return QTest::qWaitFor([&] { return service->eventSub()->activeSubscriptions().size() == 3; }, 5000);
    }
    LensId current() const { return lensStore->currentLensId(); }
    QList<ExternalEvent> externalEvents() const
    {
        QList<ExternalEvent> events;
        for (const auto &action : sent(ActionType::ExternalEvent))
            events << action->payload.value<ExternalEvent>();
        return events;
    }

    LensInfoStorage storage;
    NetworkLensProvider *provider;
    std::shared_ptr<LensStore> lensStore;
};

} // namespace

class TwitchLiveTest : public QObject
{
    Q_OBJECT
    TwitchStandIn m_twitch;
    LiveEventsStandIn m_live{&m_twitch};
    LensServerProcess m_lensServer;
    QTemporaryDir m_cache;

    // A rig signed in, with a lens for every role, a 1.5 s lens timeout and
    // the main lens on.
    std::unique_ptr<Rig> linkedRig(const nlohmann::json &settings = nlohmann::json::object())
    {
        auto rig = std::make_unique<Rig>(m_lensServer, m_cache.path(), settings);
        rig->send(ActionType::Started);
        if (!QTest::qWaitFor([&] { return !rig->lensStore->initing(); }, 10000))
            return nullptr;
        rig->service->authClient()->installTokens(storedForm(m_twitch.issueTokens(), 14400));
        if (!QTest::qWaitFor([&] { return rig->store->authorized(); }, 5000))
            return nullptr;
        rig->send(ActionType::SetTwitchSecondaryLensTimeout, 1500);
        for (int role = 0; role < 4; ++role)
            rig->lens(ActionType::SetSecondaryLens, kTierLenses[role], role);
        rig->lens(ActionType::SetActiveLensId, kMainLens);
        return QTest::qWaitFor([&] { return rig->current() == kMainLens; }, 5000) ? std::move(rig) : nullptr;
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("tst_twitchlive"));
        registerMetaTypes();
        // No credential store: the login lives in memory for the test.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        qputenv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
        QVERIFY(m_twitch.start() && m_live.start() && m_lensServer.isReady());
        qputenv("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl().toUtf8());
        qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
        qputenv("GLINT_TWITCH_EVENTSUB_URL", m_live.eventSubUrl().toUtf8());
        qputenv("GLINT_TWITCH_PUBSUB_URL", m_live.pubSubUrl().toUtf8());
        QStringList folders;
        for (const char *name :
             {"big-eyes", "confetti", "film-noir", "fireworks", "heart-eyes", "sunglasses"})
            folders << QStringLiteral(GLINT_SAMPLE_LENSES "/") + QLatin1String(name);
        QVERIFY(m_lensServer.import(folders));
        QVERIFY(m_lensServer.start(m_twitch.lensServerArguments()));
        QVERIFY(m_cache.isValid());
    }

    void subscriptionSwitchesLensAndBack_data()
    {
        QTest::addColumn<bool>("pubsub");
        QTest::addColumn<QString>("plan"); // empty: the "try it" button
        QTest::addColumn<bool>("anyTier");
        QTest::addColumn<QString>("lens");
        QTest::newRow("tier 1") << false << "1000" << false << kTierLenses[1];
        QTest::newRow("tier 3") << false << "3000" << false << kTierLenses[3];
        QTest::newRow("tier 3, any tier") << false << "3000" << true << kTierLenses[0];
        QTest::newRow("prime over pubsub") << true << "Prime" << false << kTierLenses[1];
        QTest::newRow("tier 2 over pubsub") << true << "2000" << false << kTierLenses[2];
        QTest::newRow("try it") << false << "" << false << kTierLenses[1];
    }
    void subscriptionSwitchesLensAndBack()
    {
        QFETCH(bool, pubsub);
        QFETCH(QString, plan);
        QFETCH(bool, anyTier);
        QFETCH(QString, lens);
        auto rig = linkedRig({{"liveEvents", pubsub ? "pubsub" : "eventsub"}});
        QVERIFY(rig);
        rig->send(ActionType::setTwitchSubscriptionReactionIndependentOnTier, anyTier);
        const QString topic = QStringLiteral("channel-subscribe-events-v1.141981764");
        if (plan.isEmpty()) {
            rig->send(ActionType::EmulateSubscribeEvent);
        } else if (!pubsub) {
            QVERIFY(rig->subscribed() && m_live.subscribe(plan));
        } else {
            QTRY_COMPARE(m_live.listeners(topic), 1);
            QCOMPARE(
                m_live.publish(topic, {{"user_name", "cool_user"}, {"sub_plan", plan}, {"context", "sub"}}),
                1);
        }
        QTRY_COMPARE(rig->current(), lens);
        QVERIFY(rig->store->subscriptionLensActive());
        QCOMPARE(rig->store->mainLensId(), kMainLens);
        QTest::qWait(600);
        QCOMPARE(rig->current(), lens); // it stays for the timeout
        QTRY_COMPARE_WITH_TIMEOUT(rig->current(), kMainLens, 3000);
        QVERIFY(!rig->store->subscriptionLensActive());
        QVERIFY(rig->externalEvents().isEmpty());
    }

    void resubscriptionFollowsItsOption()
    {
        auto rig = linkedRig();
        QVERIFY(rig && rig->subscribed());
        rig->send(ActionType::setTwitchSubscriptionReactionForResubscribeEnabled, false);
        QJsonObject resub = m_live.subscription(QStringLiteral("2000"));
        resub.insert("cumulative_months", 12);
        const int lensActions = rig->sent(ActionType::SetActiveLensId).size();
        QVERIFY(m_live.notify(QStringLiteral("channel.subscription.message"), resub));
        QTest::qWait(1000);
        // Nothing was dispatched for it: no lens, no external event.
        QCOMPARE(rig->sent(ActionType::SetActiveLensId).size(), lensActions);
        QVERIFY(rig->externalEvents().isEmpty());
        rig->send(ActionType::setTwitchSubscriptionReactionForResubscribeEnabled, true);
        QVERIFY(m_live.notify(QStringLiteral("channel.subscription.message"), resub));
        QTRY_COMPARE(rig->current(), kTierLenses[2]);
        QTRY_COMPARE_WITH_TIMEOUT(rig->current(), kMainLens, 3000);
    }

    void manualChangeEndsWithoutRestore()
    {
        auto rig = linkedRig();
        QVERIFY(rig && rig->subscribed());
        QVERIFY(m_live.subscribe(QStringLiteral("1000")));
        QTRY_COMPARE(rig->current(), kTierLenses[1]);
        rig->lens(ActionType::SetActiveLensId, QStringLiteral("big-eyes"));
        QTRY_COMPARE(rig->current(), QStringLiteral("big-eyes"));
        QVERIFY(!rig->store->subscriptionLensActive());
        QCOMPARE(rig->store->mainLensId(), QStringLiteral("big-eyes"));
        QTest::qWait(2500); // past the timeout
        QCOMPARE(rig->current(), QStringLiteral("big-eyes"));
    }

    void bitsAndUnassignedSubscriptionsGoToTheLens()
    {
        auto rig = linkedRig();
        QVERIFY(rig && rig->subscribed());
        QVERIFY(m_live.notify(QStringLiteral("channel.cheer"), {{"user_login", "cool_user"}, {"bits", 300}}));
        rig->lens(ActionType::SetSecondaryLens, QString(), int(LensRole::Tier3));
        QVERIFY(m_live.subscribe(QStringLiteral("3000")));
        QTRY_COMPARE(rig->externalEvents().size(), 2);
        QCOMPARE(rig->current(), kMainLens);
        const auto data = [&](int i) {
            return QJsonDocument::fromJson(rig->externalEvents().at(i).data).object();
        };
        QCOMPARE(rig->externalEvents().at(0).type, QByteArray("donate"));
        QCOMPARE(data(0).value("amount").toInt(), 300);
        QCOMPARE(data(0).value("user_name").toString(), QStringLiteral("cool_user"));
        QCOMPARE(rig->externalEvents().at(1).type, QByteArray("subscribe"));
        QCOMPARE(data(1).value("extra").toObject().value("sub_plan").toString(), QStringLiteral("3000"));
        // With the reaction off even an assigned tier goes to the lens.
        rig->send(ActionType::setTwitchSubscriptionReactionEnabled, false);
        QVERIFY(m_live.subscribe(QStringLiteral("1000")));
        QTRY_COMPARE(rig->externalEvents().size(), 3);
        QCOMPARE(rig->current(), kMainLens);
    }

    // Twitch drops the token and the session: the next session's
    // subscriptions are refused until the token is refreshed, once.
    void refusedTokenIsRefreshed()
    {
        auto rig = linkedRig();
        QVERIFY(rig && rig->subscribed());
        const int refreshes = m_twitch.refreshes();
        m_twitch.invalidateAccessToken(rig->network.accessToken().toStdString());
        m_live.closeAll();
        QTRY_COMPARE_WITH_TIMEOUT(m_twitch.refreshes(), refreshes + 1, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(rig->service->eventSub()->activeSubscriptions().size(), 3, 10000);
        QVERIFY(rig->store->authorized() && m_live.subscribe(QStringLiteral("2000")));
        QTRY_COMPARE(rig->current(), kTierLenses[2]);
        QCOMPARE(m_twitch.refreshes(), refreshes + 1);
    }

    // Settings of the wrong type are ignored; values out of range clamped.
    void hostileSettingsAreIgnored()
    {
        Rig rig(m_lensServer, m_cache.path(),
                {{"secondaryLensTimeout", "soon"}, {"secondaryLensIdTier2", 7}, {"liveEvents", {1, 2}}});
        QCOMPARE(rig.store->secondaryLensTimeout(), TwitchStore::kDefaultLensTimeoutMs);
        QCOMPARE(rig.store->secondaryLensIdTier2(), QString());
        QCOMPARE(rig.service->liveEvents(), TwitchService::LiveEvents::EventSub);
        rig.send(ActionType::SetTwitchSecondaryLensTimeout, -5);
        QTRY_COMPARE(rig.store->secondaryLensTimeout(), 0);
    }

    // No credential store answers (this test runs without a session bus):
    // the failures are logged, and the login lasts for this run only.
    void loginWithoutCredentialStore()
    {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to read twitch from keychain: .+"));
        TwitchProgram p(QStringLiteral("http://127.0.0.1:9/vc/v1"));
        QSignalSpy finished(&p.keychain, &KeychainComponent::loadFinished);
        p.start();
        QVERIFY(!finished.isEmpty() || finished.wait(10000));
        QVERIFY(!p.service->tokensRemembered() && !p.store->tokensRemembered());
        QSignalSpy written(&p.keychain, &KeychainComponent::storeFinished);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to write twitch to keychain: .+"));
        const OAuthTokens tokens = storedForm({"acc", "ref"}, 14400);
        p.keychain.store(tokens);
        QVERIFY(!written.isEmpty() || written.wait(10000));
        QCOMPARE(written.first().first().toBool(), false);
        // Tokens the sign-in brings are still used for this run.
        p.service->authClient()->installTokens(tokens);
        QCOMPARE(p.network.accessToken(), tokens.accessToken);
    }
};

QTEST_MAIN(TwitchLiveTest)
#include "tst_twitchlive.moc"
