#pragma once

#include <QtGlobal>
#include <glintcamera_events.pb.h>

namespace VCam {

namespace Gale = com::parlo::analytics::gale;

// Where the analytics middleware hands the events it takes from the action
// stream. The service fills the common fields (session, installation,
// application type, favourites count) and uploads the events in batches.
class IAnalyticsService
{
public:
    virtual ~IAnalyticsService() = default;

    // Loads what an earlier run left queued; reports an earlier run that
    // did not end cleanly. Called once, when the dispatcher starts.
    virtual void start() = 0;
    // Adds lastEvent (unless it is empty) without sending anything more and
    // stores what is still pending for the next run; called once at the end.
    virtual void stop(Gale::GlintcameraEvent lastEvent) = 0;
    // False while the user has switched usage statistics off: events are
    // then neither queued nor sent.
    virtual bool isEnabled() const = 0;
    virtual void addEvent(Gale::GlintcameraEvent event) = 0;
    virtual void setFavoritesCount(qint32 count) = 0;
};

} // namespace VCam
