#pragma once

#include <memory>
#include <store.h>

namespace VCam {

class ActionProvider;
class ExternalEventsListener;

// Owns the external events listener: starts it when the application has
// started and turns every event it accepts into an ExternalEvent action.
class ExternalEventsStore : public Store
{
    Q_OBJECT
public:
    // The listener becomes the store's child; null makes one on the
    // default port.
    ExternalEventsStore(std::shared_ptr<ActionProvider> actionProvider,
                        ExternalEventsListener *listener = nullptr, QObject *parent = nullptr);

    ExternalEventsListener *listener() const { return m_listener; }

public slots:
    void process(std::shared_ptr<Bureau::Action> action) override;

private:
    void onExternalEvent(const QByteArray &type, const QByteArray &data);

    std::shared_ptr<ActionProvider> m_actionProvider;
    ExternalEventsListener *m_listener;
};

} // namespace VCam
