#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// The program does not ask for the user's position: it is always unknown.
class LocationTrackerDelegate : public Orb::LocationTrackerDelegate
{
public:
    bool getLocation(double &, double &) override { return false; }
};

} // namespace VCam
