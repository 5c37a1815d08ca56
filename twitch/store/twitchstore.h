#pragma once

#include "twitchuser.h"

#include <actiontypes.h>
#include <memory>
#include <store.h>

namespace Bureau {
class Dispatcher;
}

namespace VCam {

class TwitchService;

// The store of the "twitch" section: what the Twitch page shows about the
// linked account. Asks the service to link or unlink on the user's actions
// and turns the service's results into state and actions.
class TwitchStore : public Store
{
    Q_OBJECT
    Q_PROPERTY(int oauthState READ oauthState NOTIFY authStateChanged)
    Q_PROPERTY(bool authorized READ authorized NOTIFY authStateChanged)
    Q_PROPERTY(bool isPartnerAccount READ isPartnerAccount NOTIFY userInfoChanged)
    Q_PROPERTY(QString currentUserName READ currentUserName NOTIFY userInfoChanged)
    Q_PROPERTY(bool tokensRemembered READ tokensRemembered NOTIFY tokensRememberedChanged)
public:
    TwitchStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, std::shared_ptr<TwitchService> service,
                QObject *parent = nullptr);

    int oauthState() const;
    bool authorized() const;
    bool isPartnerAccount() const { return m_user.isPartner(); }
    QString currentUserName() const { return m_user.displayName; }
    bool tokensRemembered() const;
    TwitchService *service() const { return m_service.get(); }

public slots:
    void process(std::shared_ptr<Bureau::Action> action) override;
    void start() override;

signals:
    void authStateChanged();
    void userInfoChanged();
    void tokensRememberedChanged();

private:
    void onAuthStateChanged(TwitchAuthState state);
    void onUserInfoReceived(const TwitchUser &user);
    void dispatch(ActionType type, QVariant payload = {});

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    std::shared_ptr<TwitchService> m_service;
    TwitchUser m_user;
    bool m_cancelling = false;
};

} // namespace VCam
