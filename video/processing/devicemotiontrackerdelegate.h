#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// A desktop camera does not move: the orientation is fixed.
class DeviceMotionTrackerDelegate : public Orb::DeviceMotionTrackerDelegate
{
public:
    Orb::DeviceOrientation getDeviceOrientation() override;
};

} // namespace VCam
