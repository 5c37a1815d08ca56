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

    // Faces scoring at least minConfidence (the detector's own threshold is
    // 0). Candidates from a small picture are worth confirming with
    // detectAround at kConfirmConfidence, which rejects most false finds in
    // clothes and patterns.
    std::vector<cv::Rect2f> detect(const cv::Mat &gray, double minConfidence = 0.0);

    static constexpr double kConfirmConfidence = 0.3;

    // Looks for a face in a window around an expected box of the full-size
    // picture, scaled so the face is about detector size: cheap enough to run
    // every few frames. Returns the best match in full-size coordinates.
    bool detectAround(const cv::Mat &gray, const cv::Rect2f &expected, cv::Rect2f &found,
                      double minConfidence = 0.0);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace Orb
