#include "externaleventsstore.h"

#include "externaleventslistener.h"

#include <action.h>
#include <actionprovider.h>
#include <actiontypes.h>

namespace VCam {

ExternalEventsStore::ExternalEventsStore(std::shared_ptr<ActionProvider> actionProvider,
                                         ExternalEventsListener *listener, QObject *parent)
    : Store(parent), m_actionProvider(std::move(actionProvider)),
      m_listener(listener ? listener : new ExternalEventsListener())
{
    m_listener->setParent(this);
    connect(m_listener, &ExternalEventsListener::externalEventReceived, this,
            &ExternalEventsStore::onExternalEvent);
}

void ExternalEventsStore::process(std::shared_ptr<Bureau::Action> action)
{
    if (static_cast<ActionType>(action->type) == ActionType::Started)
        m_listener->startListen();
}

void ExternalEventsStore::onExternalEvent(const QByteArray &type, const QByteArray &data)
{
    m_actionProvider->externalEvent(type.toStdString(), data.toStdString());
}

} // namespace VCam
