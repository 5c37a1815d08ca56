#include "devicemotiontrackerdelegate.h"

namespace VCam {

Orb::DeviceOrientation DeviceMotionTrackerDelegate::getDeviceOrientation()
{
    Orb::DeviceOrientation orientation;
    orientation.angleX = 0.0f;
    orientation.angleY = 0.7853982f; // 45 degrees
    orientation.timestamp = 0.0;
    return orientation;
}

} // namespace VCam
