#include "landmarkmodel.h"

#include "fileutils.h"

#include <cstdlib>
#include <dlib/image_processing/shape_predictor.h>
#include <map>
#include <mutex>

namespace Orb {

std::string LandmarkModel::path()
{
    const char *overridePath = std::getenv("ORB_LANDMARK_MODEL");
    return overridePath && *overridePath ? overridePath : ORB_DEFAULT_LANDMARK_MODEL;
}

std::shared_ptr<const dlib::shape_predictor> LandmarkModel::shared(const std::string &file,
                                                                   std::string &error)
{
    // Loading costs about a second; keep each model for the whole process.
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<const dlib::shape_predictor>> cache;
    std::lock_guard<std::mutex> lock(mutex);
    auto cached = cache.find(file);
    if (cached != cache.end())
        return cached->second;
    if (!FileUtils::fileExists(file)) {
        error = "landmark model not found at " + file + " (set ORB_LANDMARK_MODEL)";
        return nullptr;
    }
    auto model = std::make_shared<dlib::shape_predictor>();
    try {
        dlib::deserialize(file) >> *model;
    } catch (const std::exception &e) {
        error = "landmark model " + file + " could not be read: " + e.what();
        return nullptr;
    }
    if (model->num_parts() != 68) {
        error =
            "landmark model " + file + " has " + std::to_string(model->num_parts()) + " points, 68 needed";
        return nullptr;
    }
    cache[file] = model;
    return model;
}

} // namespace Orb
