#pragma once

namespace Orb {

// Device orientation: two rotation angles in radians and the time they were
// measured at (seconds).
struct DeviceOrientation
{
    float angleX = 0.0f;
    float angleY = 0.0f;
    double timestamp = 0.0;
};

class DeviceMotionTrackerDelegate
{
public:
    virtual ~DeviceMotionTrackerDelegate() = default;
    virtual DeviceOrientation getDeviceOrientation() = 0;
};

} // namespace Orb
