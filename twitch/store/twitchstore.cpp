#include "twitchstore.h"

#include "twitchservice.h"

#include <dispatcher.h>
#include <popupmessage.h>

namespace VCam {

TwitchStore::TwitchStore(std::shared_ptr<Bureau::Dispatcher> dispatcher,
                         std::shared_ptr<TwitchService> service, QObject *parent)
    : Store(parent), m_dispatcher(std::move(dispatcher)), m_service(std::move(service))
{
    connect(m_service.get(), &TwitchService::authStateChanged, this, &TwitchStore::onAuthStateChanged);
    connect(m_service.get(), &TwitchService::userInfoReceived, this, &TwitchStore::onUserInfoReceived);
    connect(m_service.get(), &TwitchService::tokensRememberedChanged, this,
            &TwitchStore::tokensRememberedChanged);
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

void TwitchStore::start()
{
    m_service->start();
    emit started();
}

void TwitchStore::process(std::shared_ptr<Bureau::Action> action)
{
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
    default:
        break;
    }
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
    }
    emit authStateChanged();
}

void TwitchStore::onUserInfoReceived(const TwitchUser &user)
{
    m_user = user;
    emit userInfoChanged();
}

void TwitchStore::dispatch(ActionType type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(static_cast<qint32>(type), std::move(payload)));
}

} // namespace VCam
