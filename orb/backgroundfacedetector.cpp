#include "backgroundfacedetector.h"

#include "facedetector.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace Orb {

namespace {
bool overlaps(const cv::Rect2f &a, const cv::Rect2f &b)
{
    return (a & b).area() > 0.3f * std::min(a.area(), b.area());
}

FaceDetector &threadDetector()
{
    // Detectors are not safe to share between threads; each thread keeps one.
    thread_local FaceDetector detector;
    return detector;
}
} // namespace

BackgroundFaceDetector::BackgroundFaceDetector() : m_thread([this] { loop(); }) {}

BackgroundFaceDetector::~BackgroundFaceDetector()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_done.notify_all();
    m_thread.join();
}

bool BackgroundFaceDetector::submit(Job job)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pending)
        return false;
    m_job = std::move(job);
    m_pending = true;
    m_hasResult = false;
    m_wake.notify_all();
    return true;
}

bool BackgroundFaceDetector::takeResult(Result &result)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasResult)
        return false;
    result = std::move(m_result);
    m_result = Result();
    m_hasResult = false;
    return true;
}

bool BackgroundFaceDetector::waitResult(Result &result)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_done.wait(lock, [this] { return !m_pending || m_quit; });
    lock.unlock();
    return takeResult(result);
}

bool BackgroundFaceDetector::isBusy()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending;
}

bool BackgroundFaceDetector::check(const cv::Mat &gray, const Check &check, cv::Rect2f &found)
{
    FaceDetector &detector = threadDetector();
    constexpr float kUpright = 0.09f; // about 5 degrees
    if (std::abs(check.roll) < kUpright)
        return detector.detectAround(gray, check.box, found, kCheckConfidence);
    // The frontal detector wants upright faces: turn a window around the face
    // upright, look there, and turn the found centre back.
    const cv::Point2f centre(check.box.x + check.box.width / 2, check.box.y + check.box.height / 2);
    const int side = int(check.box.width * 2.2f) | 1;
    const cv::Point2f patchCentre(side / 2.0f, side / 2.0f);
    cv::Mat turn = cv::getRotationMatrix2D(centre, check.roll * 180.0 / CV_PI, 1.0);
    turn.at<double>(0, 2) += patchCentre.x - centre.x;
    turn.at<double>(1, 2) += patchCentre.y - centre.y;
    cv::Mat patch;
    cv::warpAffine(gray, patch, turn, cv::Size(side, side), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    const cv::Rect2f expected(patchCentre.x - check.box.width / 2, patchCentre.y - check.box.height / 2,
                              check.box.width, check.box.height);
    cv::Rect2f upright;
    if (!detector.detectAround(patch, expected, upright, kCheckConfidence))
        return false;
    cv::Mat back;
    cv::invertAffineTransform(turn, back);
    const cv::Point2f c(upright.x + upright.width / 2, upright.y + upright.height / 2);
    const cv::Point2f at(
        float(back.at<double>(0, 0) * c.x + back.at<double>(0, 1) * c.y + back.at<double>(0, 2)),
        float(back.at<double>(1, 0) * c.x + back.at<double>(1, 1) * c.y + back.at<double>(1, 2)));
    found = cv::Rect2f(at.x - upright.width / 2, at.y - upright.height / 2, upright.width, upright.height);
    return true;
}

BackgroundFaceDetector::Result BackgroundFaceDetector::run(const Job &job)
{
    FaceDetector &detector = threadDetector();
    Result result;
    for (const Check &c : job.checks) {
        CheckResult out{c.id, false, c.box, c.box};
        out.found = check(job.gray, c, out.box);
        result.checks.push_back(out);
    }
    if (!job.search)
        return result;
    cv::Mat small;
    cv::resize(job.gray, small, cv::Size(), job.searchScale, job.searchScale, cv::INTER_AREA);
    for (cv::Rect2f box : detector.detect(small)) {
        const double s = job.searchScale;
        box = cv::Rect2f(float(box.x / s), float(box.y / s), float(box.width / s), float(box.height / s));
        const auto same = [&](const cv::Rect2f &other) { return overlaps(other, box); };
        if (std::any_of(job.known.begin(), job.known.end(), same) ||
            std::any_of(result.newFaces.begin(), result.newFaces.end(), same))
            continue;
        // Candidates from the small picture are confirmed at full size, which
        // rejects most false finds in clothes and patterns.
        cv::Rect2f confirmed;
        if (detector.detectAround(job.gray, box, confirmed, FaceDetector::kConfirmConfidence))
            result.newFaces.push_back(confirmed);
    }
    return result;
}

void BackgroundFaceDetector::loop()
{
    // The thread keeps the frame loop's priority: tracking depends on its
    // checks, and on a busy machine a lowered thread finds a face only after
    // seconds.
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [this] { return m_quit || (m_pending && !m_hasResult); });
        if (m_quit)
            return;
        const Job job = std::move(m_job);
        lock.unlock();
        Result result = run(job);
        lock.lock();
        m_result = std::move(result);
        m_hasResult = true;
        m_pending = false;
        m_done.notify_all();
    }
}

} // namespace Orb
