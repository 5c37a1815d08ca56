#include "facedetector.h"

#include <dlib/image_processing/frontal_face_detector.h>
#include <dlib/opencv/cv_image.h>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
// Building the detector decodes its embedded model, which takes about a
// second; do it once per process and hand out copies.
const dlib::frontal_face_detector &prototype()
{
    static const dlib::frontal_face_detector detector = dlib::get_frontal_face_detector();
    return detector;
}
} // namespace

struct FaceDetector::Impl
{
    dlib::frontal_face_detector detector = prototype();
};

FaceDetector::FaceDetector() : d(std::make_unique<Impl>()) {}

FaceDetector::~FaceDetector() = default;

std::vector<cv::Rect2f> FaceDetector::detect(const cv::Mat &gray, double minConfidence)
{
    dlib::cv_image<unsigned char> image(gray);
    std::vector<dlib::rect_detection> detections;
    d->detector(image, detections, minConfidence);
    std::vector<cv::Rect2f> out;
    for (const auto &det : detections) {
        out.emplace_back(det.rect.left(), det.rect.top(), det.rect.width(), det.rect.height());
    }
    return out;
}

bool FaceDetector::detectAround(const cv::Mat &gray, const cv::Rect2f &expected, cv::Rect2f &found,
                                double minConfidence)
{
    const float margin = expected.width * 0.35f;
    cv::Rect window(
        cv::Point(static_cast<int>(expected.x - margin), static_cast<int>(expected.y - margin)),
        cv::Point(static_cast<int>(expected.br().x + margin), static_cast<int>(expected.br().y + margin)));
    window &= cv::Rect(0, 0, gray.cols, gray.rows);
    if (window.width < 40 || window.height < 40)
        return false;
    // Scale so the expected face is a little above the detector's 80 pixels.
    const double scale = std::min(1.5, 90.0 / std::max(1.0f, expected.width));
    cv::Mat crop;
    cv::resize(gray(window), crop, cv::Size(), scale, scale, cv::INTER_AREA);
    const cv::Point2f centre(expected.x + expected.width / 2, expected.y + expected.height / 2);
    float best = expected.width * 0.5f;
    bool ok = false;
    for (const auto &r : detect(crop, minConfidence)) {
        cv::Rect2f full(window.x + r.x / scale, window.y + r.y / scale, r.width / scale, r.height / scale);
        cv::Point2f c(full.x + full.width / 2, full.y + full.height / 2);
        const float dist = static_cast<float>(cv::norm(c - centre));
        if (dist < best) {
            best = dist;
            found = full;
            ok = true;
        }
    }
    return ok;
}

} // namespace Orb
