#pragma once

namespace Orb {

// Geographic position for location-aware lenses; false when unknown.
class LocationTrackerDelegate
{
public:
    virtual ~LocationTrackerDelegate() = default;
    virtual bool getLocation(double &latitude, double &longitude) = 0;
};

} // namespace Orb
