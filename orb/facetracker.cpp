#include "facetracker.h"

#include "backgroundfacedetector.h"
#include "expressionanalyzer.h"
#include "facedetector.h"
#include "imagebase.h"
#include "landmarkmodel.h"

#include <algorithm>
#include <cmath>
#include <dlib/image_processing/shape_predictor.h>
#include <dlib/opencv/cv_image.h>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
constexpr int kCheckInterval = 5;    // frames between checks around a face
constexpr int kSearchInterval = 30;  // frames between searches for more faces
constexpr int kAllowedMisses = 2;    // failed checks before a face is dropped
constexpr int kDetectionWidth = 640; // full detection runs at this width

struct TrackedFace
{
    Face face;
    ExpressionAnalyzer expressions;
    // The detector's box relative to the landmarks' bounding box, so the next
    // frame's box can be derived from this frame's landmarks.
    cv::Rect2f relativeBox{0, 0, 1, 1};
    // The box the landmarks were last fitted in. It only follows the face
    // when the face really moved: refitting in a box derived from the last
    // fit would let the landmarks creep on a still face.
    cv::Rect2f box;
    int misses = 0;
};

cv::Rect2f landmarkBounds(const Face &face)
{
    float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
    for (const auto &p : face.landmarks) {
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
    return {x0, y0, std::max(1.0f, x1 - x0), std::max(1.0f, y1 - y0)};
}

cv::Rect2f relativeTo(const cv::Rect2f &box, const cv::Rect2f &bounds)
{
    return {(box.x - bounds.x) / bounds.width, (box.y - bounds.y) / bounds.height, box.width / bounds.width,
            box.height / bounds.height};
}

cv::Rect2f applyRelative(const cv::Rect2f &rel, const cv::Rect2f &bounds)
{
    return {bounds.x + rel.x * bounds.width, bounds.y + rel.y * bounds.height, rel.width * bounds.width,
            rel.height * bounds.height};
}

// Whether a box differs from the last one by more than fitting noise.
bool hasMoved(const cv::Rect2f &last, const cv::Rect2f &now)
{
    const float shift = std::hypot((now.x + now.width / 2) - (last.x + last.width / 2),
                                   (now.y + now.height / 2) - (last.y + last.height / 2));
    return shift > 0.04f * last.width || std::abs(now.width - last.width) > 0.06f * last.width;
}

bool overlaps(const cv::Rect2f &a, const cv::Rect2f &b)
{
    const float inter = (a & b).area();
    return inter > 0.3f * std::min(a.area(), b.area());
}
} // namespace

struct FaceTracker::Impl
{
    std::shared_ptr<const dlib::shape_predictor> model;
    FaceDetector detector;
    std::unique_ptr<BackgroundFaceDetector> background;
    std::vector<TrackedFace> tracked;
    std::vector<Face> faces;
    cv::Mat gray;
    cv::Mat small;
    int frameIndex = 0;
    int nextId = 1;
    int lastSearchFrame = -kSearchInterval;
    int pendingSearchFrame = -1; // frame whose background search is running
    bool discardPending = false; // that search began before a restart
    double restartTime = 0.0;
    bool restartPending = true; // limits count from the next frame's time
    TrackingRequestInfo limits;

    void toGray(const ImageBase &frame);
    void searchFaces(double now, Detection detection);
    void takeBackgroundResult(Detection detection);
    void addDetections(const std::vector<cv::Rect2f> &boxes);
    bool fitLandmarks(TrackedFace &t, const cv::Rect2f &box, bool smooth);
    void trackAll();
};

void FaceTracker::Impl::toGray(const ImageBase &frame)
{
    const int type = frame.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : frame.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    cv::Mat view(frame.height(), frame.width(), type, const_cast<uint8_t *>(frame.data()),
                 frame.bytesPerLine());
    switch (frame.colorSpace()) {
    case ColorSpace::RGBA:
        cv::cvtColor(view, gray, cv::COLOR_RGBA2GRAY);
        break;
    case ColorSpace::BGRA:
        cv::cvtColor(view, gray, cv::COLOR_BGRA2GRAY);
        break;
    case ColorSpace::RGB:
        cv::cvtColor(view, gray, cv::COLOR_RGB2GRAY);
        break;
    case ColorSpace::Gray:
        view.copyTo(gray);
        break;
    }
}

void FaceTracker::Impl::addDetections(const std::vector<cv::Rect2f> &boxes)
{
    for (const auto &box : boxes) {
        if (static_cast<int>(tracked.size()) >= kMaxFaces)
            return;
        bool known = std::any_of(tracked.begin(), tracked.end(), [&](const TrackedFace &t) {
            return overlaps(applyRelative(t.relativeBox, landmarkBounds(t.face)), box);
        });
        if (known)
            continue;
        cv::Rect2f confirmed;
        if (!detector.detectAround(gray, box, confirmed, FaceDetector::kConfirmConfidence))
            continue;
        TrackedFace t;
        t.face.id = nextId++;
        t.box = confirmed;
        if (fitLandmarks(t, confirmed, false)) {
            t.relativeBox = relativeTo(confirmed, landmarkBounds(t.face));
            tracked.push_back(std::move(t));
        }
    }
}

void FaceTracker::Impl::takeBackgroundResult(Detection detection)
{
    if (!background || pendingSearchFrame < 0)
        return;
    std::vector<cv::Rect2f> detections;
    if (detection == Detection::Lockstep) {
        if (frameIndex - pendingSearchFrame < kLockstepFrames)
            return;
        background->waitResult(detections);
    } else if (!background->takeResult(detections)) {
        return;
    }
    pendingSearchFrame = -1;
    if (discardPending)
        discardPending = false;
    else
        addDetections(detections);
}

void FaceTracker::Impl::searchFaces(double now, Detection detection)
{
    const bool searching = tracked.empty();
    if (searching && now - restartTime > limits.maxSearchSeconds)
        return;
    if (!searching && (frameIndex - lastSearchFrame < kSearchInterval || tracked.size() >= kMaxFaces))
        return;
    const double scale = std::min(1.0, static_cast<double>(kDetectionWidth) / gray.cols);
    cv::resize(gray, small, cv::Size(), scale, scale, cv::INTER_AREA);
    if (detection == Detection::Inline) {
        lastSearchFrame = frameIndex;
        std::vector<cv::Rect2f> boxes = detector.detect(small);
        for (auto &b : boxes)
            b = cv::Rect2f(b.x / scale, b.y / scale, b.width / scale, b.height / scale);
        addDetections(boxes);
        return;
    }
    if (!background)
        background = std::make_unique<BackgroundFaceDetector>();
    if (pendingSearchFrame < 0 && background->submit(small, scale)) {
        lastSearchFrame = frameIndex;
        pendingSearchFrame = frameIndex;
    }
}

bool FaceTracker::Impl::fitLandmarks(TrackedFace &t, const cv::Rect2f &box, bool smooth)
{
    dlib::cv_image<unsigned char> image(gray);
    dlib::rectangle rect(static_cast<long>(box.x), static_cast<long>(box.y), static_cast<long>(box.br().x),
                         static_cast<long>(box.br().y));
    const dlib::full_object_detection shape = (*model)(image, rect);
    if (shape.num_parts() != Face::kLandmarkCount)
        return false;
    const float eyes = t.face.eyeDistance();
    for (int i = 0; i < Face::kLandmarkCount; ++i) {
        Point fresh{static_cast<float>(shape.part(i).x()), static_cast<float>(shape.part(i).y())};
        Point &p = t.face.landmarks[i];
        if (!smooth || eyes < 1.0f) {
            p = fresh;
            continue;
        }
        // Follow fast moves at once, damp sub-pixel noise on a still face.
        const float moved = Face::distance(p, fresh) / eyes;
        const float alpha = std::min(1.0f, 0.2f + moved * 8.0f);
        p.x += (fresh.x - p.x) * alpha;
        p.y += (fresh.y - p.y) * alpha;
    }
    return true;
}

void FaceTracker::Impl::trackAll()
{
    const cv::Rect2f frameRect(0, 0, static_cast<float>(gray.cols), static_cast<float>(gray.rows));
    for (auto it = tracked.begin(); it != tracked.end();) {
        TrackedFace &t = *it;
        const cv::Rect2f predicted = applyRelative(t.relativeBox, landmarkBounds(t.face));
        if (hasMoved(t.box, predicted))
            t.box = predicted;
        cv::Rect2f &box = t.box;
        bool keep = (box & frameRect).area() > 0.3f * box.area() && box.width > 24.0f;
        if (keep && (frameIndex + t.face.id) % kCheckInterval == 0) {
            cv::Rect2f found;
            if (detector.detectAround(gray, box, found)) {
                t.misses = 0;
                // Only a clear disagreement means the landmarks drifted off.
                if (!overlaps(found, box))
                    box = found;
            } else {
                keep = ++t.misses <= kAllowedMisses;
            }
        }
        if (keep && fitLandmarks(t, box, true)) {
            t.face.expressions = t.expressions.update(t.face);
            ++it;
        } else {
            it = tracked.erase(it);
        }
    }
    // Two tracks that converged on one face: keep the older one.
    for (size_t i = 0; i < tracked.size(); ++i) {
        for (size_t j = i + 1; j < tracked.size();) {
            if (overlaps(landmarkBounds(tracked[i].face), landmarkBounds(tracked[j].face)))
                tracked.erase(tracked.begin() + static_cast<long>(j));
            else
                ++j;
        }
    }
}

FaceTracker::FaceTracker() : d(std::make_unique<Impl>()) {}

FaceTracker::~FaceTracker() = default;

bool FaceTracker::initialize(const std::string &modelPath, std::string &error)
{
    d->model = LandmarkModel::shared(modelPath, error);
    if (d->model && !d->background)
        d->background = std::make_unique<BackgroundFaceDetector>();
    return d->model != nullptr;
}

bool FaceTracker::isInitialized() const
{
    return d->model != nullptr;
}

const std::vector<Face> &FaceTracker::process(const ImageBase &frame, double timeSeconds,
                                              bool synchronousDetection)
{
    return process(frame, timeSeconds, synchronousDetection ? Detection::Inline : Detection::Background);
}

const std::vector<Face> &FaceTracker::process(const ImageBase &frame, double timeSeconds, Detection detection)
{
    d->faces.clear();
    if (!d->model)
        return d->faces;
    ++d->frameIndex;
    if (d->restartPending) {
        d->restartPending = false;
        d->restartTime = timeSeconds;
    }
    if (timeSeconds - d->restartTime > d->limits.maxTrackingSeconds) {
        d->tracked.clear();
        return d->faces;
    }
    d->toGray(frame);
    d->takeBackgroundResult(detection);
    d->trackAll();
    d->searchFaces(timeSeconds, detection);
    for (const auto &t : d->tracked)
        d->faces.push_back(t.face);
    return d->faces;
}

const std::vector<Face> &FaceTracker::faces() const
{
    return d->faces;
}

void FaceTracker::restart(const TrackingRequestInfo &info)
{
    d->tracked.clear();
    d->faces.clear();
    d->limits = info;
    d->restartPending = true;
    d->lastSearchFrame = d->frameIndex - kSearchInterval;
    // A search still running saw the old frames: its result is dropped.
    d->discardPending = d->pendingSearchFrame >= 0;
}

} // namespace Orb
