#pragma once

namespace Orb {

// Device heading for lenses that point somewhere; false when unknown.
class CompassTrackerDelegate
{
public:
    virtual ~CompassTrackerDelegate() = default;
    virtual bool getHeadingDegrees(float &heading) = 0;
};

} // namespace Orb
