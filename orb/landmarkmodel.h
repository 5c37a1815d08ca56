#pragma once

#include <memory>
#include <string>

namespace dlib {
class shape_predictor;
}

namespace Orb {

// The 68-point landmark model, loaded once per process and shared. Its path
// is ORB_LANDMARK_MODEL when set, otherwise the Debian location.
class LandmarkModel
{
public:
    static std::string path();
    // Returns the shared model at a path, loading it on first use; null with an error
    // text when it cannot be read.
    static std::shared_ptr<const dlib::shape_predictor> shared(const std::string &path, std::string &error);
};

} // namespace Orb
