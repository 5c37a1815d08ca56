#include "facetracker.h"

#include "backgroundfacedetector.h"
#include "expressionanalyzer.h"
#include "facedetector.h"
#include "helperthread.h"
#include "imagebase.h"
#include "landmarkmodel.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <dlib/image_processing/shape_predictor.h>
#include <dlib/opencv/cv_image.h>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
constexpr int kCheckInterval = 5;     // frames between checks of tracked faces
constexpr int kSearchInterval = 30;   // frames between searches for more faces
constexpr int kAllowedMisses = 2;     // failed checks in a row before a face is dropped
constexpr int kDetectionWidth = 640;  // searches run at this width
constexpr float kRegionMargin = 0.4f; // gray pixels kept around each face, per box width
// A steady face (one that moves, turns and scales slowly) is fitted every
// other frame, half of the faces on even frames and half on odd ones; in
// between its landmarks move on by its last movement. Per frame, relative to
// the eye distance:
constexpr float kSteadyShift = 0.05f; // at most this movement
constexpr float kSteadyScale = 0.02f; // at most this change of the eye distance
constexpr float kSteadyRoll = 0.02f;  // at most this turn, in radians
constexpr float kStillShift = 0.01f;  // below this the movement is fitting noise

using Job = BackgroundFaceDetector::Job;
using Result = BackgroundFaceDetector::Result;

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
    // Movement per frame between the last two fits.
    Point velocity{0, 0};
    float eyeRate = 0.0f, rollRate = 0.0f;
    // The last fit: its frame, landmarks' centre, eye distance and tilt.
    int fitFrame = -1;
    bool movementKnown = false; // the last two fits were at most two frames apart
    Point fitCentre{0, 0};
    float fitEyes = 0.0f, fitRoll = 0.0f;
    bool fitNow = true; // this frame fits the landmarks rather than predicting them
    bool fresh = true;  // found by a detection, landmarks not fitted yet
    bool stale = false; // that detection saw an earlier frame
    bool lost = false;  // the landmarks could not be fitted
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

// The tilt of the line through the eyes, clockwise on screen.
float rollOf(const Face &face)
{
    const Point l = face.leftEye(), r = face.rightEye();
    return std::atan2(r.y - l.y, r.x - l.x);
}

bool overlaps(const cv::Rect2f &a, const cv::Rect2f &b)
{
    const float inter = (a & b).area();
    return inter > 0.3f * std::min(a.area(), b.area());
}

Point centreOf(const Face &face)
{
    Point c{0, 0};
    for (const auto &p : face.landmarks)
        c.x += p.x, c.y += p.y;
    return {c.x / Face::kLandmarkCount, c.y / Face::kLandmarkCount};
}

// Whether a face moved, scaled and turned little enough between its last two
// fits for its landmarks to be predicted for a frame.
bool isSteady(const TrackedFace &t)
{
    const float eyes = t.fitEyes;
    return t.movementKnown && eyes >= 1.0f && std::hypot(t.velocity.x, t.velocity.y) < kSteadyShift * eyes &&
           std::abs(t.eyeRate) < kSteadyScale * eyes && std::abs(t.rollRate) < kSteadyRoll;
}

// Records a fit and the face's movement per frame since the fit before.
void noteFit(TrackedFace &t, int frameIndex)
{
    const Point centre = centreOf(t.face);
    const float eyes = t.face.eyeDistance(), roll = rollOf(t.face);
    t.movementKnown = t.fitFrame >= 0 && frameIndex - t.fitFrame <= 2;
    if (t.fitFrame >= 0 && frameIndex > t.fitFrame) {
        const float frames = float(frameIndex - t.fitFrame);
        t.velocity = {(centre.x - t.fitCentre.x) / frames, (centre.y - t.fitCentre.y) / frames};
        if (std::hypot(t.velocity.x, t.velocity.y) < kStillShift * eyes)
            t.velocity = {0, 0};
        t.eyeRate = (eyes - t.fitEyes) / frames;
        t.rollRate = (roll - t.fitRoll) / frames;
    }
    t.fitFrame = frameIndex;
    t.fitCentre = centre;
    t.fitEyes = eyes;
    t.fitRoll = roll;
}
} // namespace

// Each frame fits the landmarks of every tracked face in a box derived from
// its last landmarks, on gray pixels converted only around the faces. The
// detections (a search for new faces, a check that each face is still there)
// run as one job on the background thread every few frames, on one copy of
// the whole gray frame; their results come back a few frames later.
struct FaceTracker::Impl
{
    std::shared_ptr<const dlib::shape_predictor> model;
    std::unique_ptr<BackgroundFaceDetector> background;
    FaceDetector detector; // places faces found on earlier frames on this one
    HelperThread helper;   // fits half of the faces when there are several
    std::vector<TrackedFace> tracked;
    std::vector<Face> faces;
    cv::Mat gray;
    bool wholeGray = false; // this frame's gray covers the whole frame
    int frameIndex = 0;
    int nextId = 1;
    int lastSearchFrame = -kSearchInterval;
    int lastCheckFrame = -kCheckInterval;
    int pendingJobFrame = -1;    // frame whose job is running in the background
    bool discardPending = false; // that job began before a restart
    double restartTime = 0.0;
    bool restartPending = true; // limits count from the next frame's time
    TrackingRequestInfo limits;

    void planFits();
    void toGray(const ImageBase &frame, const cv::Rect &region);
    void toGrayAroundFaces(const ImageBase &frame);
    void takeResult(Detection detection);
    void apply(const Result &result, int jobFrame);
    void submitJob(const ImageBase &frame, double now, Detection detection);
    bool fitLandmarks(TrackedFace &t, const cv::Rect2f &box, bool smooth);
    void fitAll(const std::vector<TrackedFace *> &faces, std::vector<char> &fitted);
    void trackAll(bool freshOnly = false);
};

void FaceTracker::Impl::toGray(const ImageBase &frame, const cv::Rect &region)
{
    const int type = frame.colorSpace() == ColorSpace::Gray  ? CV_8UC1
                     : frame.colorSpace() == ColorSpace::RGB ? CV_8UC3
                                                             : CV_8UC4;
    const cv::Mat view = cv::Mat(frame.height(), frame.width(), type, const_cast<uint8_t *>(frame.data()),
                                 frame.bytesPerLine())(region);
    cv::Mat out = gray(region);
    switch (frame.colorSpace()) {
    case ColorSpace::RGBA:
        cv::cvtColor(view, out, cv::COLOR_RGBA2GRAY);
        break;
    case ColorSpace::BGRA:
        cv::cvtColor(view, out, cv::COLOR_BGRA2GRAY);
        break;
    case ColorSpace::RGB:
        cv::cvtColor(view, out, cv::COLOR_RGB2GRAY);
        break;
    case ColorSpace::Gray:
        view.copyTo(out);
        break;
    }
}

void FaceTracker::Impl::toGrayAroundFaces(const ImageBase &frame)
{
    const cv::Rect whole(0, 0, frame.width(), frame.height());
    for (TrackedFace &t : tracked) {
        if (!t.fresh) {
            const cv::Rect2f predicted = applyRelative(t.relativeBox, landmarkBounds(t.face));
            if (hasMoved(t.box, predicted))
                t.box = predicted;
        }
        const float m = t.box.width * kRegionMargin;
        const cv::Rect region = cv::Rect(cv::Point(int(t.box.x - m), int(t.box.y - m)),
                                         cv::Point(int(t.box.br().x + m) + 1, int(t.box.br().y + m) + 1)) &
                                whole;
        if (t.fitNow && !wholeGray && region.area() > 0)
            toGray(frame, region);
    }
}

void FaceTracker::Impl::apply(const Result &result, int jobFrame)
{
    for (const auto &check : result.checks) {
        auto it = std::find_if(tracked.begin(), tracked.end(),
                               [&](const TrackedFace &t) { return t.face.id == check.id; });
        if (it == tracked.end())
            continue;
        if (check.found) {
            it->misses = 0;
            // Only a clear disagreement means the landmarks drifted off. The
            // check saw an older frame: move today's box by the correction.
            if (!overlaps(check.box, check.expected)) {
                const float scale = check.box.width / std::max(1.0f, check.expected.width);
                const cv::Point2f shift =
                    (check.box.tl() + check.box.br() - check.expected.tl() - check.expected.br()) / 2;
                const cv::Point2f centre = (it->box.tl() + it->box.br()) / 2 + shift;
                const cv::Size2f size = it->box.size() * scale;
                it->box = cv::Rect2f(centre - cv::Point2f(size.width / 2, size.height / 2), size);
                it->fresh = true;
                it->stale = jobFrame != frameIndex;
            }
        } else if (++it->misses > kAllowedMisses) {
            tracked.erase(it);
        } else {
            lastCheckFrame = -kCheckInterval; // look again at once
        }
    }
    for (const auto &box : result.newFaces) {
        if (static_cast<int>(tracked.size()) >= kMaxFaces)
            break;
        const bool known = std::any_of(tracked.begin(), tracked.end(),
                                       [&](const TrackedFace &t) { return overlaps(t.box, box); });
        if (known)
            continue;
        TrackedFace t;
        t.face.id = nextId++;
        t.box = box;
        t.stale = jobFrame != frameIndex;
        tracked.push_back(std::move(t));
    }
}

void FaceTracker::Impl::takeResult(Detection detection)
{
    if (!background || pendingJobFrame < 0)
        return;
    Result result;
    if (detection == Detection::Lockstep) {
        if (frameIndex - pendingJobFrame < kLockstepFrames)
            return;
        background->waitResult(result);
    } else if (!background->takeResult(result)) {
        return;
    }
    const int jobFrame = pendingJobFrame;
    pendingJobFrame = -1;
    if (discardPending)
        discardPending = false;
    else
        apply(result, jobFrame);
}

void FaceTracker::Impl::submitJob(const ImageBase &frame, double now, Detection detection)
{
    const bool searching = tracked.empty();
    const bool searchDue =
        searching ? now - restartTime <= limits.maxSearchSeconds
                  : frameIndex - lastSearchFrame >= kSearchInterval && tracked.size() < size_t(kMaxFaces);
    const bool checkDue = !searching && frameIndex - lastCheckFrame >= kCheckInterval;
    if (!searchDue && !checkDue)
        return;
    if (detection != Detection::Inline && pendingJobFrame >= 0)
        return; // the last job is still running
    if (!wholeGray) {
        toGray(frame, cv::Rect(0, 0, frame.width(), frame.height()));
        wholeGray = true;
    }
    Job job;
    job.gray = detection == Detection::Inline ? gray : gray.clone();
    job.search = searchDue;
    job.searchScale = std::min(1.0, static_cast<double>(kDetectionWidth) / gray.cols);
    for (const TrackedFace &t : tracked) {
        job.known.push_back(t.box);
        if (checkDue)
            job.checks.push_back({t.face.id, t.box, rollOf(t.face)});
    }
    if (searchDue)
        lastSearchFrame = frameIndex;
    if (checkDue)
        lastCheckFrame = frameIndex;
    if (detection == Detection::Inline) {
        apply(BackgroundFaceDetector::run(job), frameIndex);
        trackAll(true); // fits the faces found or corrected just now
        return;
    }
    if (!background)
        background = std::make_unique<BackgroundFaceDetector>();
    if (background->submit(std::move(job)))
        pendingJobFrame = frameIndex;
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

void FaceTracker::Impl::planFits()
{
    for (size_t i = 0; i < tracked.size(); ++i) {
        TrackedFace &t = tracked[i];
        const bool ownFrame = (size_t(frameIndex) + i) % 2 == 0;
        t.fitNow = t.fresh || ownFrame || frameIndex - t.fitFrame > 1 || !isSteady(t);
    }
}

void FaceTracker::Impl::fitAll(const std::vector<TrackedFace *> &faces, std::vector<char> &fitted)
{
    fitted.assign(faces.size(), 0);
    // The fits only read the gray frame and the model and each writes its
    // own face. Both threads take the next face not yet taken, so when the
    // helper gets no core this thread fits them all without waiting.
    std::atomic<size_t> next{0};
    auto fitNext = [&] {
        for (size_t i = next++; i < faces.size(); i = next++)
            fitted[i] = fitLandmarks(*faces[i], faces[i]->box, !faces[i]->fresh);
    };
    if (faces.size() > 1)
        helper.start(fitNext);
    fitNext();
    if (faces.size() > 1)
        helper.wait();
}

void FaceTracker::Impl::trackAll(bool freshOnly)
{
    const cv::Rect2f frameRect(0, 0, static_cast<float>(gray.cols), static_cast<float>(gray.rows));
    std::vector<TrackedFace *> toFit;
    for (auto it = tracked.begin(); it != tracked.end();) {
        TrackedFace &t = *it;
        if (freshOnly && !t.fresh) {
            ++it;
            continue;
        }
        if (!t.fitNow && !t.fresh) {
            // A steady face between two fits: it moves on as it moved.
            for (Point &p : t.face.landmarks)
                p.x += t.velocity.x, p.y += t.velocity.y;
            ++it;
            continue;
        }
        if (t.fresh && t.stale) {
            // The face has moved since: landmarks fitted in an old box
            // shrink onto a part of the face. Find it again on this frame.
            cv::Rect2f now;
            if (detector.detectAround(gray, t.box, now, BackgroundFaceDetector::kCheckConfidence))
                t.box = now;
            t.stale = false;
        }
        const bool keep = (t.box & frameRect).area() > 0.3f * t.box.area() && t.box.width > 24.0f;
        if (keep) {
            toFit.push_back(&t);
            ++it;
        } else {
            it = tracked.erase(it);
        }
    }
    std::vector<char> fitted;
    fitAll(toFit, fitted);
    for (size_t i = 0; i < toFit.size(); ++i) {
        TrackedFace &t = *toFit[i];
        if (!fitted[i]) {
            t.lost = true;
            continue;
        }
        if (t.fresh) {
            t.relativeBox = relativeTo(t.box, landmarkBounds(t.face));
            t.fitFrame = -1; // a new track: no movement known yet
        }
        t.fresh = false;
        noteFit(t, frameIndex);
        t.face.expressions = t.expressions.update(t.face);
    }
    tracked.erase(std::remove_if(tracked.begin(), tracked.end(), [](const TrackedFace &t) { return t.lost; }),
                  tracked.end());
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
    if (d->gray.rows != frame.height() || d->gray.cols != frame.width())
        d->gray.create(frame.height(), frame.width(), CV_8UC1);
    d->wholeGray = false;
    d->takeResult(detection);
    d->planFits();
    d->toGrayAroundFaces(frame);
    d->trackAll();
    d->submitJob(frame, timeSeconds, detection);
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
    // A job still running saw the old frames: its result is dropped.
    d->discardPending = d->pendingJobFrame >= 0;
}

} // namespace Orb
