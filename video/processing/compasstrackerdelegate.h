#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// Desktops have no compass: the heading is always unknown.
class CompassTrackerDelegate : public Orb::CompassTrackerDelegate
{
public:
    bool getHeadingDegrees(float &) override { return false; }
};

} // namespace VCam
