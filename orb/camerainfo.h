#pragma once

#include "recttransform.h"
#include "size.h"

namespace Orb {

// Describes the camera that produces the frames: its kind (0 = front-facing
// webcam), frame size, vertical field of view in degrees, horizontal field of
// view in degrees (negative: derived from the aspect ratio) and the transform
// from the sensor picture to the frames handed in.
struct CameraInfo
{
    CameraInfo() = default;
    CameraInfo(int cameraType, Size frameSize, float verticalFieldOfView, float horizontalFieldOfView,
               RectTransform transform)
        : cameraType(cameraType), frameSize(frameSize), verticalFieldOfView(verticalFieldOfView),
          horizontalFieldOfView(horizontalFieldOfView), transform(transform)
    {}

    int cameraType = 0;
    Size frameSize;
    float verticalFieldOfView = 24.45f;
    float horizontalFieldOfView = -1.0f;
    RectTransform transform;
};

} // namespace Orb
