// Live events end to end: the program's Twitch service and store beside the
// real lens store, over the real lens server, with the Twitch stand-in's
// Helix and its EventSub and PubSub servers. Subscriptions switch the lens
// the lens store applies and switch back; bits and subscriptions without a
// lens reach the running lens as external events.
#include "eventsubstandin.h"
#include "lensserverprocess.h"
#include "pubsubstandin.h"
#include "twitchstandin.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <collectingstore.h>
#include <dispatcher.h>
#include <externalevent.h>
#include <keychaincomponent.h>
#include <lenscommand.h>
#include <lensinfostorage.h>
#include <lensstore.h>
#include <metatypes.h>
#include <networklensprovider.h>
#include <networkmanager.h>
#include <twitchauthclient.h>
#include <twitcheventsubhelper.h>
#include <twitchservice.h>
#include <twitchstore.h>
#include <twitchstreamstatehelper.h>
#include <twitchsubscriptionhelper.h>

using namespace VCam;

namespace {

const LensId kMainLens = QStringLiteral("film-noir");
const LensId kTierLenses[4] = {QStringLiteral("sunglasses"), QStringLiteral("confetti"),
                               QStringLiteral("fireworks"), QStringLiteral("heart-eyes")};

// The lens and Twitch sides of the program as start-up wires them.
struct Rig
{
    Rig(const LensServerProcess &server, const QString &cacheRoot, const nlohmann::json &twitchSettings)
        : network(server.baseUrl(), [] { return QStringLiteral("live-test"); }),
          provider(new NetworkLensProvider(&network, cacheRoot, server.publicKey())),
          dispatcher(std::make_shared<Bureau::Dispatcher>()),
          lensStore(
              std::make_shared<LensStore>(dispatcher, provider, &provider->cache(), &network, &storage)),
          keychain(QCoreApplication::applicationName()),
          service(std::make_shared<TwitchService>(&network, &keychain)),
          twitchStore(std::make_shared<TwitchStore>(dispatcher, service)),
          recorder(std::make_shared<CollectingStore>())
    {
        twitchStore->loadSettings(twitchSettings);
        dispatcher->addStore(lensStore);
        dispatcher->addStore(twitchStore);
        dispatcher->addStore(recorder);
        dispatcher->start();
    }
    ~Rig()
    {
        // The stores and the dispatcher hold each other; the live-event
        // sessions and the stream poll must not outlive the test that
        // opened them (nor this rig's network manager).
        service->eventSub()->stop();
        service->pubSub()->stop();
        service->streamState()->timer()->stop();
        dispatcher->stop();
    }

    void send(ActionType type, const QVariant &payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), payload));
    }
    void select(const LensId &lensId)
    {
        LensCommand command;
        command.lensId = lensId;
        command.context = LensActionContext::LensExplorer;
        send(ActionType::SetActiveLensId, QVariant::fromValue(command));
    }
    void assign(LensRole role, const LensId &lensId)
    {
        LensCommand command;
        command.lensId = lensId;
        command.kind = int(role);
        send(ActionType::SetSecondaryLens, QVariant::fromValue(command));
    }
    // A stored login of the stand-in, as the credential store hands it over.
    void link(TwitchStandIn &twitch)
    {
        const auto issued = twitch.issueTokens();
        OAuthTokens tokens;
        tokens.issuedAt = QDateTime::currentSecsSinceEpoch();
        tokens.expiresAt = tokens.issuedAt + 14400;
        tokens.accessToken = QString::fromStdString(issued.first);
        tokens.refreshToken = QString::fromStdString(issued.second);
        service->authClient()->installTokens(tokens);
    }
    LensId current() const { return lensStore->currentLensId(); }
    QList<ExternalEvent> externalEvents() const
    {
        QList<ExternalEvent> events;
        for (const auto &action : recorder->ofType(ActionType::ExternalEvent))
            events << action->payload.value<ExternalEvent>();
        return events;
    }

    NetworkManager network;
    LensInfoStorage storage;
    NetworkLensProvider *provider;
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<LensStore> lensStore;
    KeychainComponent keychain;
    std::shared_ptr<TwitchService> service;
    std::shared_ptr<TwitchStore> twitchStore;
    std::shared_ptr<CollectingStore> recorder;
};

} // namespace

class TwitchLiveTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void subscriptionSwitchesLensAndBack_data();
    void subscriptionSwitchesLensAndBack();
    void resubscriptionFollowsItsOption();
    void manualChangeEndsWithoutRestore();
    void bitsAndUnassignedSubscriptionsGoToTheLens();
    void refusedTokenIsRefreshed();
    void settingsRoundTripAndQuietFlags();
    void accountStateReachesTheStore_data();
    void accountStateReachesTheStore();
    void loginWithoutCredentialStore();

private:
    std::unique_ptr<Rig> linkedRig(const nlohmann::json &settings = nlohmann::json::object());

    TwitchStandIn m_twitch;
    EventSubStandIn m_eventSub{&m_twitch};
    PubSubStandIn m_pubSub{&m_twitch};
    LensServerProcess m_lensServer;
    QTemporaryDir m_cache;
};

void TwitchLiveTest::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral("tst_twitchlive"));
    registerMetaTypes();
    // No credential store: the login lives in memory for the test.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    qputenv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
    QVERIFY(m_twitch.start());
    QVERIFY(m_eventSub.start());
    QVERIFY(m_pubSub.start());
    qputenv("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl().toUtf8());
    qputenv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl().toUtf8());
    qputenv("GLINT_TWITCH_EVENTSUB_URL", m_eventSub.url().toUtf8());
    qputenv("GLINT_TWITCH_PUBSUB_URL", m_pubSub.url().toUtf8());
    QVERIFY(m_lensServer.isReady());
    QStringList folders;
    for (const char *name : {"big-eyes", "confetti", "film-noir", "fireworks", "heart-eyes", "sunglasses"})
        folders << QStringLiteral(GLINT_SAMPLE_LENSES "/") + QLatin1String(name);
    QVERIFY(m_lensServer.import(folders));
    QVERIFY(m_lensServer.start(m_twitch.lensServerArguments()));
    QVERIFY(m_cache.isValid());
}

void TwitchLiveTest::init()
{
    m_twitch.setExtension(TwitchStandIn::Extension::Active);
    m_twitch.setStream(false, 0);
}

std::unique_ptr<Rig> TwitchLiveTest::linkedRig(const nlohmann::json &settings)
{
    auto rig = std::make_unique<Rig>(m_lensServer, m_cache.path(), settings);
    rig->send(ActionType::Started);
    if (!QTest::qWaitFor([&] { return !rig->lensStore->initing(); }, 10000))
        return nullptr;
    rig->link(m_twitch);
    if (!QTest::qWaitFor([&] { return rig->twitchStore->authorized(); }, 5000))
        return nullptr;
    rig->send(ActionType::SetTwitchSecondaryLensTimeout, 1500);
    for (int role = 0; role < 4; ++role)
        rig->assign(LensRole(role), kTierLenses[role]);
    rig->select(kMainLens);
    if (!QTest::qWaitFor([&] { return rig->current() == kMainLens; }, 5000))
        return nullptr;
    return rig;
}

void TwitchLiveTest::subscriptionSwitchesLensAndBack_data()
{
    QTest::addColumn<QString>("protocol");
    QTest::addColumn<QString>("plan");
    QTest::addColumn<bool>("independent");
    QTest::addColumn<QString>("lens");
    QTest::newRow("tier 1") << "eventsub"
                            << "1000" << false << kTierLenses[1];
    QTest::newRow("tier 3") << "eventsub"
                            << "3000" << false << kTierLenses[3];
    QTest::newRow("tier 3, any tier") << "eventsub"
                                      << "3000" << true << kTierLenses[0];
    QTest::newRow("prime over pubsub") << "pubsub"
                                       << "Prime" << false << kTierLenses[1];
    QTest::newRow("tier 2 over pubsub") << "pubsub"
                                        << "2000" << false << kTierLenses[2];
    QTest::newRow("try it") << "eventsub"
                            << "" << false << kTierLenses[1];
}

void TwitchLiveTest::subscriptionSwitchesLensAndBack()
{
    QFETCH(QString, protocol);
    QFETCH(QString, plan);
    QFETCH(bool, independent);
    QFETCH(QString, lens);
    auto rig = linkedRig({{"liveEvents", protocol.toStdString()}});
    QVERIFY(rig);
    rig->send(ActionType::setTwitchSubscriptionReactionIndependentOnTier, independent);

    if (plan.isEmpty()) {
        rig->send(ActionType::EmulateSubscribeEvent);
    } else if (protocol == QLatin1String("eventsub")) {
        QTRY_COMPARE(rig->service->eventSub()->activeSubscriptions().size(), 3);
        QVERIFY(m_eventSub.subscribe(plan));
    } else {
        const QJsonObject event{{"user_name", "cool_user"},
                                {"display_name", "Cool_User"},
                                {"channel_name", "glintstreamer"},
                                {"sub_plan", plan},
                                {"context", "sub"},
                                {"months", 1}};
        const QString topic = QStringLiteral("channel-subscribe-events-v1.141981764");
        QTRY_COMPARE(m_pubSub.listeners(topic), 1);
        QCOMPARE(m_pubSub.publish(topic, event), 1);
    }
    QTRY_COMPARE(rig->current(), lens);
    QVERIFY(rig->twitchStore->subscriptionLensActive());
    QCOMPARE(rig->twitchStore->mainLensId(), kMainLens);
    QTest::qWait(600);
    QCOMPARE(rig->current(), lens); // it stays for the timeout
    QTRY_COMPARE_WITH_TIMEOUT(rig->current(), kMainLens, 3000);
    QVERIFY(!rig->twitchStore->subscriptionLensActive());
    QVERIFY(rig->externalEvents().isEmpty());
}

void TwitchLiveTest::resubscriptionFollowsItsOption()
{
    auto rig = linkedRig();
    QVERIFY(rig);
    QTRY_COMPARE(rig->service->eventSub()->activeSubscriptions().size(), 3);
    rig->send(ActionType::setTwitchSubscriptionReactionForResubscribeEnabled, false);
    QJsonObject resub = m_eventSub.subscription(QStringLiteral("2000"));
    resub.insert("cumulative_months", 12);
    const int lensActions = rig->recorder->ofType(ActionType::SetActiveLensId).size();
    QVERIFY(m_eventSub.notify(QStringLiteral("channel.subscription.message"), resub));
    QTest::qWait(1000);
    QCOMPARE(rig->current(), kMainLens);
    QVERIFY(!rig->twitchStore->subscriptionLensActive());
    // Nothing was dispatched for it: no lens, no external event.
    QCOMPARE(rig->recorder->ofType(ActionType::SetActiveLensId).size(), lensActions);
    QVERIFY(rig->externalEvents().isEmpty());

    rig->send(ActionType::setTwitchSubscriptionReactionForResubscribeEnabled, true);
    QVERIFY(m_eventSub.notify(QStringLiteral("channel.subscription.message"), resub));
    QTRY_COMPARE(rig->current(), kTierLenses[2]);
    QTRY_COMPARE_WITH_TIMEOUT(rig->current(), kMainLens, 3000);
}

void TwitchLiveTest::manualChangeEndsWithoutRestore()
{
    auto rig = linkedRig();
    QVERIFY(rig);
    QTRY_COMPARE(rig->service->eventSub()->activeSubscriptions().size(), 3);
    QVERIFY(m_eventSub.subscribe(QStringLiteral("1000")));
    QTRY_COMPARE(rig->current(), kTierLenses[1]);
    rig->select(QStringLiteral("big-eyes"));
    QTRY_COMPARE(rig->current(), QStringLiteral("big-eyes"));
    QVERIFY(!rig->twitchStore->subscriptionLensActive());
    QCOMPARE(rig->twitchStore->mainLensId(), QStringLiteral("big-eyes"));
    QTest::qWait(2500); // past the timeout
    QCOMPARE(rig->current(), QStringLiteral("big-eyes"));
}

void TwitchLiveTest::bitsAndUnassignedSubscriptionsGoToTheLens()
{
    auto rig = linkedRig();
    QVERIFY(rig);
    QTRY_COMPARE(rig->service->eventSub()->activeSubscriptions().size(), 3);
    const QJsonObject cheer{{"is_anonymous", false},    {"user_login", "cool_user"},
                            {"user_name", "Cool_User"}, {"broadcaster_user_id", "141981764"},
                            {"message", "Cheer300"},    {"bits", 300}};
    QVERIFY(m_eventSub.notify(QStringLiteral("channel.cheer"), cheer));
    rig->assign(LensRole::Tier3, QString());
    QVERIFY(m_eventSub.subscribe(QStringLiteral("3000")));
    QTRY_COMPARE(rig->externalEvents().size(), 2);
    QCOMPARE(rig->current(), kMainLens);

    const ExternalEvent donate = rig->externalEvents().at(0);
    QCOMPARE(donate.type, QByteArray("donate"));
    const QJsonObject donation = QJsonDocument::fromJson(donate.data).object();
    QCOMPARE(donation.value("amount").toInt(), 300);
    QCOMPARE(donation.value("user_name").toString(), QStringLiteral("cool_user"));
    QCOMPARE(donation.value("service").toString(), QStringLiteral("twitch"));
    QCOMPARE(donation.value("extra").toObject().value("data").toObject().value("chat_message").toString(),
             QStringLiteral("Cheer300"));

    const ExternalEvent subscribe = rig->externalEvents().at(1);
    QCOMPARE(subscribe.type, QByteArray("subscribe"));
    const QJsonObject subscription = QJsonDocument::fromJson(subscribe.data).object();
    QCOMPARE(subscription.value("extra").toObject().value("sub_plan").toString(), QStringLiteral("3000"));

    // With the reaction off even an assigned tier goes to the lens.
    rig->send(ActionType::setTwitchSubscriptionReactionEnabled, false);
    QVERIFY(m_eventSub.subscribe(QStringLiteral("1000")));
    QTRY_COMPARE(rig->externalEvents().size(), 3);
    QCOMPARE(rig->current(), kMainLens);
}

void TwitchLiveTest::refusedTokenIsRefreshed()
{
    auto rig = linkedRig();
    QVERIFY(rig);
    QTRY_COMPARE(rig->service->eventSub()->activeSubscriptions().size(), 3);
    const int refreshes = m_twitch.refreshes();
    // Twitch drops the token and the session: the next session's
    // subscriptions are refused until the token is refreshed.
    m_twitch.invalidateAccessToken(rig->network.accessToken().toStdString());
    m_eventSub.closeAll();
    QTRY_COMPARE_WITH_TIMEOUT(m_twitch.refreshes(), refreshes + 1, 10000);
    QTRY_COMPARE_WITH_TIMEOUT(rig->service->eventSub()->activeSubscriptions().size(), 3, 10000);
    QVERIFY(rig->twitchStore->authorized());
    QVERIFY(m_eventSub.subscribe(QStringLiteral("2000")));
    QTRY_COMPARE(rig->current(), kTierLenses[2]);
    QCOMPARE(m_twitch.refreshes(), refreshes + 1);
}

void TwitchLiveTest::settingsRoundTripAndQuietFlags()
{
    nlohmann::json saved;
    {
        Rig rig(m_lensServer, m_cache.path(),
                {{"secondaryLensTimeout", "soon"}, {"secondaryLensIdTier2", 7}});
        QCOMPARE(rig.twitchStore->secondaryLensTimeout(), TwitchStore::kDefaultLensTimeoutMs);
        QCOMPARE(rig.twitchStore->secondaryLensIdTier2(), QString());
        QSignalSpy reaction(rig.twitchStore.get(), &TwitchStore::changeLensOnSubscriptionChanged);
        QSignalSpy timeout(rig.twitchStore.get(), &TwitchStore::secondaryLensTimeoutChanged);
        rig.send(ActionType::setTwitchSubscriptionReactionEnabled, true); // already on
        rig.send(ActionType::SetTwitchSecondaryLensTimeout, TwitchStore::kDefaultLensTimeoutMs);
        rig.send(ActionType::setTwitchSubscriptionReactionEnabled, false);
        rig.send(ActionType::SetTwitchSecondaryLensTimeout, 12000);
        rig.send(ActionType::SetTwitchSecondaryLensTimeout, -5);
        rig.assign(LensRole::Tier2, QStringLiteral("fireworks"));
        QTRY_COMPARE(rig.twitchStore->secondaryLensIdTier2(), QStringLiteral("fireworks"));
        QCOMPARE(reaction.size(), 1);
        QCOMPARE(timeout.size(), 2);
        QCOMPARE(rig.twitchStore->secondaryLensTimeout(), 0);
        rig.send(ActionType::SetTwitchSecondaryLensTimeout, 12000);
        QTRY_COMPARE(rig.twitchStore->secondaryLensTimeout(), 12000);
        saved = rig.twitchStore->saveSettings();
    }
    Rig again(m_lensServer, m_cache.path(), saved);
    QVERIFY(!again.twitchStore->isSubscriptionReactionEnabled());
    QCOMPARE(again.twitchStore->secondaryLensTimeout(), 12000);
    QCOMPARE(again.twitchStore->secondaryLensIdTier2(), QStringLiteral("fireworks"));
    QCOMPARE(again.service->liveEvents(), TwitchService::LiveEvents::EventSub);
}

void TwitchLiveTest::accountStateReachesTheStore_data()
{
    QTest::addColumn<int>("extension");
    QTest::addColumn<int>("status");
    QTest::newRow("not installed") << int(TwitchStandIn::Extension::None)
                                   << int(TwitchExtensionStatus::NotInstalled);
    QTest::newRow("installed, no active slot")
        << int(TwitchStandIn::Extension::Installed) << int(TwitchExtensionStatus::NotActivated);
    QTest::newRow("active") << int(TwitchStandIn::Extension::Active) << int(TwitchExtensionStatus::Activated);
}

void TwitchLiveTest::accountStateReachesTheStore()
{
    QFETCH(int, extension);
    QFETCH(int, status);
    m_twitch.setExtension(TwitchStandIn::Extension(extension));
    m_twitch.setStream(true, 42);
    Rig rig(m_lensServer, m_cache.path(), nlohmann::json::object());
    QSignalSpy extensionChanged(rig.twitchStore.get(), &TwitchStore::extensionStatusChanged);
    rig.link(m_twitch);
    QTRY_COMPARE(extensionChanged.size(), 1);
    QCOMPARE(rig.twitchStore->extensionStatus(), status);
    QCOMPARE(rig.twitchStore->twitchExtensionInstalled(), status != int(TwitchExtensionStatus::NotInstalled));
    QTRY_COMPARE(rig.twitchStore->currentUserName(), QStringLiteral("GlintStreamer"));
    QVERIFY(rig.twitchStore->isPartnerAccount());
    QTRY_VERIFY(rig.twitchStore->streamLive());
    QCOMPARE(rig.twitchStore->viewerCount(), 42);
    QCOMPARE(rig.recorder->ofType(ActionType::NotifyStreamStateUpdated).size(), 1);

    // A later poll sees the stream end (sooner than five minutes here).
    QVERIFY(rig.service->streamState()->timer()->isActive());
    m_twitch.setStream(false, 0);
    rig.service->streamState()->timer()->start(50);
    QTRY_VERIFY(!rig.twitchStore->streamLive());
}

// No credential store answers (this test runs without a session bus): each
// attempt is logged, nothing is written anywhere else, and the interface
// learns that the login lasts for this run only.
void TwitchLiveTest::loginWithoutCredentialStore()
{
    NetworkManager network(QStringLiteral("http://127.0.0.1:9/vc/v1"), [] { return QString(); });
    KeychainComponent keychain(QCoreApplication::applicationName());
    TwitchService service(&network, &keychain);
    QSignalSpy remembered(&service, &TwitchService::tokensRememberedChanged);
    QSignalSpy finished(&keychain, &KeychainComponent::loadFinished);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to read twitch from keychain: .+"));
    service.start();
    QVERIFY(!finished.isEmpty() || finished.wait(10000));
    QVERIFY(!service.tokensRemembered());
    QCOMPARE(remembered.size(), 1);

    OAuthTokens tokens;
    QVERIFY(tokens.fromJson({{"expires_in", 14400}, {"access_token", "acc"}, {"refresh_token", "ref"}}));
    QSignalSpy written(&keychain, &KeychainComponent::storeFinished);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to write twitch to keychain: .+"));
    keychain.store(tokens);
    QVERIFY(!written.isEmpty() || written.wait(10000));
    QCOMPARE(written.first().first().toBool(), false);
    QVERIFY(!service.tokensRemembered());
    // Tokens the sign-in brings are still used for this run.
    service.authClient()->installTokens(tokens);
    QCOMPARE(network.accessToken(), tokens.accessToken);
}

QTEST_MAIN(TwitchLiveTest)
#include "tst_twitchlive.moc"
