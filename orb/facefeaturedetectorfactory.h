#pragma once

#include <string>

namespace Orb {

// Lets a host replace the landmark model; null means the default model
// (ORB_LANDMARK_MODEL or the system's copy).
class FaceFeatureDetectorFactory
{
public:
    virtual ~FaceFeatureDetectorFactory() = default;
    virtual std::string landmarkModelPath() = 0;
};

} // namespace Orb
