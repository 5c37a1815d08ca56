#include "twitchstore.h"

#include "twitchservice.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <dispatcher.h>
#include <externalevent.h>
#include <glintdeployment.h>
#include <lenscommand.h>
#include <lensinfo.h>
#include <popupmessage.h>
#include <settingsvalue.h>
#include <twitchsubscriptionhelper.h>

Q_LOGGING_CATEGORY(lcTwitchStore, "glint.twitch.store")

namespace VCam {

namespace {

const char *const kReactionEnabled = "subscriptionReactionEnabled";
const char *const kIndependentOnTier = "subscriptionReactionIndependentOnTier";
const char *const kResubscribe = "subscriptionReactionEnabledForResubscribe";
const char *const kThanks = "subscriptionThankEnabled";
const char *const kLensTimeout = "secondaryLensTimeout";
const char *const kLensKeys[] = {"secondaryLensId", "secondaryLensIdTier1", "secondaryLensIdTier2",
                                 "secondaryLensIdTier3"};
const char *const kLiveEvents = "liveEvents"; // "eventsub" or "pubsub"

bool isLens(const LensId &id)
{
    return !id.isEmpty() && id != kInvalidLensId;
}

// The canned subscription of "Try it", as a PubSub message would bring it.
QString emulatedMessage()
{
    const QJsonObject event{{"user_name", "glint_test_user"},
                            {"display_name", "GlintTestUser"},
                            {"channel_name", "glint_test_channel"},
                            {"user_id", "100000001"},
                            {"channel_id", "100000002"},
                            {"time", QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
                            {"sub_plan", "Prime"},
                            {"sub_plan_name", "Channel Subscription (glint_test_channel)"},
                            {"months", 1},
                            {"context", "sub"}};
    const QJsonObject data{
        {"topic", "channel-subscribe-events-v1.100000002"},
        {"message", QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact))}};
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"type", "MESSAGE"}, {"data", data}}).toJson());
}

} // namespace

TwitchStore::TwitchStore(std::shared_ptr<Bureau::Dispatcher> dispatcher,
                         std::shared_ptr<TwitchService> service, QObject *parent)
    : Store(parent), m_dispatcher(std::move(dispatcher)), m_service(std::move(service))
{
    TwitchService *s = m_service.get();
    connect(s, &TwitchService::authStateChanged, this, &TwitchStore::onAuthStateChanged);
    connect(s, &TwitchService::userInfoReceived, this, &TwitchStore::onUserInfoReceived);
    connect(s, &TwitchService::tokensRememberedChanged, this, &TwitchStore::tokensRememberedChanged);
    connect(s, &TwitchService::extensionStatusReceived, this, &TwitchStore::onExtensionStatusReceived);
    connect(s, &TwitchService::subscriptionReceived, this, &TwitchStore::onSubscription);
    connect(s, &TwitchService::bitsReceived, this, &TwitchStore::onBits);
    connect(s, &TwitchService::subscriptionRevoked, this, &TwitchStore::onRevoked);
    connect(s, &TwitchService::streamStateReceived, this, [this](const StreamState &state) {
        dispatch(ActionType::NotifyStreamStateUpdated, QVariant::fromValue(state));
    });
    m_deactivationTimer.setSingleShot(true);
    connect(&m_deactivationTimer, &QTimer::timeout, this, &TwitchStore::onDeactivationTimeout);
}

int TwitchStore::oauthState() const
{
    return static_cast<int>(m_service->authState());
}

bool TwitchStore::authorized() const
{
    return m_service->authState() == TwitchAuthState::Authorized;
}

bool TwitchStore::tokensRemembered() const
{
    return m_service->tokensRemembered();
}

QString TwitchStore::extensionUrl() const
{
    return QStringLiteral("https://dashboard.twitch.tv/extensions/%1")
        .arg(QString::fromStdString(glint::deployment(glint::kTwitchClientId)));
}

void TwitchStore::start()
{
    m_service->start();
    emit started();
}

void TwitchStore::loadSettings(const nlohmann::json &section)
{
    m_reactionEnabled = settingsBool(section, kReactionEnabled, true);
    m_independentOnTier = settingsBool(section, kIndependentOnTier, false);
    m_resubscribeEnabled = settingsBool(section, kResubscribe, true);
    m_thanksEnabled = settingsBool(section, kThanks, true);
    const bool isObject = section.is_object();
    const auto member = [&](const char *key) {
        return isObject && section.contains(key) ? section.at(key) : nlohmann::json();
    };
    const nlohmann::json timeout = member(kLensTimeout);
    m_lensTimeoutMs = timeout.is_number_integer()
                          ? static_cast<int>(qBound<qint64>(0, timeout.get<qint64>(), kMaxLensTimeoutMs))
                          : kDefaultLensTimeoutMs;
    for (int role = 0; role < 4; ++role) {
        const nlohmann::json id = member(kLensKeys[role]);
        m_lensIds[role] = id.is_string() && id.get<std::string>().size() <= 256
                              ? QString::fromStdString(id.get<std::string>())
                              : QString();
    }
    const nlohmann::json protocol = member(kLiveEvents);
    m_service->setLiveEvents(protocol.is_string() && protocol.get<std::string>() == "pubsub"
                                 ? TwitchService::LiveEvents::PubSub
                                 : TwitchService::LiveEvents::EventSub);
    emit changeLensOnSubscriptionChanged();
    emit independOnSubscriptionTierChanged();
    emit subcriptionReactionForResubscribeEnabledChanged();
    emit subscriptionThankChanged();
    emit secondaryLensTimeoutChanged();
    emit secondaryLensIdChanged();
}

nlohmann::json TwitchStore::saveSettings() const
{
    nlohmann::json section = nlohmann::json::object();
    section[kReactionEnabled] = m_reactionEnabled;
    section[kIndependentOnTier] = m_independentOnTier;
    section[kResubscribe] = m_resubscribeEnabled;
    section[kThanks] = m_thanksEnabled;
    section[kLensTimeout] = m_lensTimeoutMs;
    for (int role = 0; role < 4; ++role)
        section[kLensKeys[role]] = m_lensIds[role].toStdString();
    section[kLiveEvents] =
        m_service->liveEvents() == TwitchService::LiveEvents::PubSub ? "pubsub" : "eventsub";
    return section;
}

void TwitchStore::process(std::shared_ptr<Bureau::Action> action)
{
    const QVariant &payload = action->payload;
    switch (static_cast<ActionType>(action->type)) {
    case ActionType::AuthorizeTwitch:
        m_service->authorize();
        break;
    case ActionType::DeauthorizeTwitch:
        // While the browser sign-in runs, unlinking means giving it up.
        if (m_service->authState() == TwitchAuthState::WaitingAccessCode ||
            m_service->authState() == TwitchAuthState::WaitingAccessToken) {
            m_cancelling = true;
            m_service->cancelAuthorization();
            m_cancelling = false;
            break;
        }
        m_service->deauthorize();
        break;
    case ActionType::ClearAppIntegrations:
        m_service->cancelAuthorization();
        m_service->deauthorize();
        break;
    case ActionType::setTwitchSubscriptionReactionEnabled:
        setFlag(m_reactionEnabled, payload, &TwitchStore::changeLensOnSubscriptionChanged);
        break;
    case ActionType::setTwitchSubscriptionReactionForResubscribeEnabled:
        setFlag(m_resubscribeEnabled, payload, &TwitchStore::subcriptionReactionForResubscribeEnabledChanged);
        break;
    case ActionType::setTwitchSubscriptionReactionIndependentOnTier:
        setFlag(m_independentOnTier, payload, &TwitchStore::independOnSubscriptionTierChanged);
        break;
    case ActionType::SetSecondaryLens: {
        const LensCommand command = payload.value<LensCommand>();
        if (command.kind < 0 || command.kind > 3)
            break;
        m_lensIds[command.kind] = isLens(command.lensId) ? command.lensId : QString();
        emit secondaryLensIdChanged();
        break;
    }
    case ActionType::SetTwitchSubscriberThankEnabled:
        setFlag(m_thanksEnabled, payload, &TwitchStore::subscriptionThankChanged);
        break;
    case ActionType::SetTwitchSecondaryLensTimeout:
        setTimeout(payload.toInt());
        break;
    case ActionType::ActiveLensChanged:
        onActiveLensChanged(payload.value<LensInfo>());
        break;
    case ActionType::EmulateSubscribeEvent:
        emulateSubscription();
        break;
    case ActionType::NotifyStreamStateUpdated:
        m_streamState = payload.value<StreamState>();
        emit streamStateChanged();
        break;
    default:
        break;
    }
}

void TwitchStore::setFlag(bool &flag, const QVariant &value, void (TwitchStore::*changed)())
{
    const bool next = value.toBool();
    if (flag == next)
        return;
    flag = next;
    emit(this->*changed)();
}

void TwitchStore::setTimeout(int ms)
{
    const int next = qBound(0, ms, kMaxLensTimeoutMs);
    if (next == m_lensTimeoutMs)
        return;
    m_lensTimeoutMs = next;
    emit secondaryLensTimeoutChanged();
}

void TwitchStore::onAuthStateChanged(TwitchAuthState state)
{
    if (state == TwitchAuthState::Authorized) {
        dispatch(ActionType::TwitchUserAuthorized);
    } else if (state == TwitchAuthState::NotAuthorized) {
        dispatch(ActionType::TwitchUserDeauthorized);
        // A sign-in the user gave up was never a login to lose.
        if (!m_cancelling)
            dispatch(ActionType::ShowPopupMessage,
                     QVariant::fromValue(PopupMessage{tr("We've logged you out"), MessageType::Info}));
        if (!m_user.displayName.isEmpty() || !m_user.id.isEmpty()) {
            m_user = TwitchUser();
            emit userInfoChanged();
        }
        if (m_subscriptionLensActive)
            onDeactivationTimeout();
        if (!m_liveEventsWarning.isEmpty()) {
            m_liveEventsWarning.clear();
            emit liveEventsWarningChanged();
        }
    }
    emit authStateChanged();
}

void TwitchStore::onUserInfoReceived(const TwitchUser &user)
{
    m_user = user;
    emit userInfoChanged();
}

void TwitchStore::onExtensionStatusReceived(TwitchExtensionStatus status)
{
    m_extensionStatus = status;
    emit extensionStatusChanged();
    emit twitchExtensionInstalledChanged();
}

LensRole TwitchStore::roleFor(const QString &plan) const
{
    if (m_independentOnTier)
        return LensRole::Independent;
    if (plan == QLatin1String("2000"))
        return LensRole::Tier2;
    if (plan == QLatin1String("3000"))
        return LensRole::Tier3;
    return LensRole::Tier1; // "1000", and Prime counts as tier 1
}

void TwitchStore::onSubscription(const SubscribeEvent &event)
{
    const LensId lens = m_lensIds[static_cast<int>(roleFor(event.subPlan))];
    if (!m_reactionEnabled || !isLens(lens)) {
        dispatchExternalEvent(
            "subscribe", {{"user_name", event.userName}, {"service", "twitch"}, {"extra", event.toJson()}});
        return;
    }
    const bool react = event.context == QLatin1String("sub") ||
                       (event.context == QLatin1String("resub") && m_resubscribeEnabled);
    if (!react)
        return;
    if (authorized()) {
        const QJsonObject config{{"is_thanks_enabled", m_thanksEnabled},
                                 {"glintcode_timeout", m_lensTimeoutMs / 1000}};
        m_service->sendSubscription(
            {{"subscriber_name", event.displayName.isEmpty() ? event.userName : event.displayName},
             {"tier", event.subPlan},
             {"lens", QJsonObject{{"lens_id", lens}}},
             {"subscribe_config", config}},
            m_reactionEnabled);
    }
    qCInfo(lcTwitchStore) << "Activate subscription Lens";
    m_subscriptionLensActive = true;
    m_subscriptionLensId = lens;
    LensCommand command;
    command.lensId = lens;
    dispatch(ActionType::SetActiveLensId, QVariant::fromValue(command));
    m_deactivationTimer.start(m_lensTimeoutMs);
}

void TwitchStore::onBits(const BitsEvent &event)
{
    dispatchExternalEvent("donate", {{"user_name", event.userName},
                                     {"service", "twitch"},
                                     {"amount", event.bitsUsed},
                                     {"extra", event.toJson()}});
}

void TwitchStore::onRevoked(const QString &type, const QString &status)
{
    m_liveEventsWarning =
        tr("Twitch stopped sending %1 events (%2). Link the account again to get them back.")
            .arg(type, status);
    emit liveEventsWarningChanged();
    dispatch(ActionType::ShowPopupMessage,
             QVariant::fromValue(PopupMessage{m_liveEventsWarning, MessageType::Warning}));
}

void TwitchStore::onActiveLensChanged(const LensInfo &lens)
{
    if (m_subscriptionLensActive && lens.lensId == m_subscriptionLensId) {
        qCInfo(lcTwitchStore) << "Subscription Lens activated";
        return;
    }
    m_mainLensId = lens.lensId;
    if (authorized())
        m_service->sendLensUpdate(lens.toJson(), m_reactionEnabled);
    // The user chose another lens: the subscription lens ends without
    // bringing the old one back.
    endSubscriptionLens();
}

void TwitchStore::endSubscriptionLens()
{
    m_deactivationTimer.stop();
    m_subscriptionLensActive = false;
    m_subscriptionLensId.clear();
}

void TwitchStore::onDeactivationTimeout()
{
    if (!m_subscriptionLensActive)
        return;
    qCInfo(lcTwitchStore) << "Deactivate subscription Lens";
    endSubscriptionLens();
    LensCommand command;
    command.lensId = isLens(m_mainLensId) ? m_mainLensId : kInvalidLensId;
    dispatch(ActionType::SetActiveLensId, QVariant::fromValue(command));
}

void TwitchStore::emulateSubscription()
{
    // The same parsing a PubSub message goes through.
    const QJsonObject message = QJsonDocument::fromJson(emulatedMessage().toUtf8()).object();
    const QString inner =
        message.value(QLatin1String("data")).toObject().value(QLatin1String("message")).toString();
    SubscribeEvent event;
    QString error;
    if (!TwitchSubscriptionHelper::parseSubscription(inner, &event, &error)) {
        qCWarning(lcTwitchStore) << "Can't build the test subscription:" << error;
        return;
    }
    onSubscription(event);
}

void TwitchStore::dispatchExternalEvent(const char *name, const QJsonObject &payload)
{
    ExternalEvent event{QByteArray(name), QJsonDocument(payload).toJson(QJsonDocument::Compact)};
    dispatch(ActionType::ExternalEvent, QVariant::fromValue(event));
}

void TwitchStore::dispatch(ActionType type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(static_cast<qint32>(type), std::move(payload)));
}

} // namespace VCam
