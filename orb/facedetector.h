#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <vector>

namespace Orb {

// Finds frontal faces in a gray picture with a HOG detector. The detector
// needs faces of at least about 80 pixels; callers scale pictures to suit.
class FaceDetector
{
public:
    FaceDetector();
    ~FaceDetector();

    std::vector<cv::Rect2f> detect(const cv::Mat &gray);

    // Looks for a face in a window around an expected box of the full-size
    // picture, scaled so the face is about detector size: cheap enough to run
    // every few frames. Returns the best match in full-size coordinates.
    bool detectAround(const cv::Mat &gray, const cv::Rect2f &expected, cv::Rect2f &found);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace Orb
