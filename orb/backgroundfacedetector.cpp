#include "backgroundfacedetector.h"

#include "facedetector.h"
#include "threadpriority.h"

namespace Orb {

BackgroundFaceDetector::BackgroundFaceDetector() : m_thread([this] { run(); }) {}

BackgroundFaceDetector::~BackgroundFaceDetector()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool BackgroundFaceDetector::submit(const cv::Mat &gray, double scale)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pending)
        return false;
    gray.copyTo(m_input);
    m_scale = scale;
    m_pending = true;
    m_wake.notify_all();
    return true;
}

bool BackgroundFaceDetector::takeResult(std::vector<cv::Rect2f> &faces)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasResult)
        return false;
    faces.swap(m_result);
    m_result.clear();
    m_hasResult = false;
    return true;
}

bool BackgroundFaceDetector::waitResult(std::vector<cv::Rect2f> &faces)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_done.wait(lock, [this] { return !m_pending || m_quit; });
    if (!m_hasResult)
        return false;
    faces.swap(m_result);
    m_result.clear();
    m_hasResult = false;
    return true;
}

bool BackgroundFaceDetector::isBusy()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending;
}

void BackgroundFaceDetector::run()
{
    ThreadPriority::lowerCurrentThread();
    FaceDetector detector;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [this] { return m_quit || (m_pending && !m_hasResult); });
        if (m_quit)
            return;
        cv::Mat input = m_input;
        const double scale = m_scale;
        lock.unlock();
        std::vector<cv::Rect2f> faces = detector.detect(input);
        for (auto &f : faces)
            f = cv::Rect2f(f.x / scale, f.y / scale, f.width / scale, f.height / scale);
        lock.lock();
        m_result = std::move(faces);
        m_hasResult = true;
        m_pending = false;
        m_done.notify_all();
    }
}

} // namespace Orb
