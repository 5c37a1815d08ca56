#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <collectingstore.h>
#include <dispatcher.h>
#include <httpserver.h>
#include <keychaincomponent.h>
#include <networkmanager.h>
#include <popupmessage.h>
#include <twitchauthclient.h>
#include <twitchauthorizationhelper.h>
#include <twitcheventsubhelper.h>
#include <twitchservice.h>
#include <twitchstore.h>
#include <twitchstreamstatehelper.h>
#include <twitchsubscriptionhelper.h>

// The program's Twitch side as start-up wires it: the service and its store
// on a dispatcher, after any stores given to start(), and a collector of
// every action dispatched.
struct TwitchProgram
{
    explicit TwitchProgram(const QString &backendUrl)
        : network(backendUrl, [] { return QStringLiteral("test-installation"); }),
          keychain(QCoreApplication::applicationName()),
          service(std::make_shared<VCam::TwitchService>(&network, &keychain)),
          dispatcher(std::make_shared<Bureau::Dispatcher>()),
          store(std::make_shared<VCam::TwitchStore>(dispatcher, service)),
          collector(std::make_shared<CollectingStore>())
    {}
    ~TwitchProgram() { shutdown(); }
    // Sessions, polls and the redirect server must not outlive the test.
    void shutdown()
    {
        service->eventSub()->stop();
        service->pubSub()->stop();
        service->streamState()->timer()->stop();
        helper()->server()->abort();
        if (dispatcher->state() == Bureau::Dispatcher::Started ||
            dispatcher->state() == Bureau::Dispatcher::Starting)
            dispatcher->stop();
    }
    void start(const std::shared_ptr<Bureau::BaseStore> &first = nullptr)
    {
        using Stores = std::initializer_list<std::shared_ptr<Bureau::BaseStore>>;
        for (const auto &each : Stores{first, store, collector})
            if (each)
                dispatcher->addStore(each);
        dispatcher->start(); // the store reads the stored login
    }

    VCam::TwitchAuthorizationHelper *helper() const { return service->authorization(); }
    VCam::TwitchAuthState state() const { return service->authState(); }
    QString token() const { return service->authClient()->tokens().accessToken; }
    void send(VCam::ActionType type, const QVariant &payload = {})
    {
        dispatcher->dispatch(new Bureau::Action(int(type), payload));
    }
    QList<std::shared_ptr<Bureau::Action>> sent(VCam::ActionType type) const
    {
        return collector->ofType(type);
    }
    QStringList popups() const
    {
        QStringList texts;
        for (const auto &action : sent(VCam::ActionType::ShowPopupMessage))
            texts << action->payload.value<VCam::PopupMessage>().text;
        return texts;
    }

    VCam::NetworkManager network;
    VCam::KeychainComponent keychain;
    std::shared_ptr<VCam::TwitchService> service;
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<VCam::TwitchStore> store;
    std::shared_ptr<CollectingStore> collector;
};

// Tokens the stand-in issued, as the credential store keeps them, running
// out in `seconds`.
inline VCam::OAuthTokens storedForm(const std::pair<std::string, std::string> &issued, qint64 seconds)
{
    VCam::OAuthTokens tokens;
    tokens.issuedAt = QDateTime::currentSecsSinceEpoch() - 60;
    tokens.expiresAt = QDateTime::currentSecsSinceEpoch() + seconds;
    tokens.accessToken = QString::fromStdString(issued.first);
    tokens.refreshToken = QString::fromStdString(issued.second);
    return tokens;
}
