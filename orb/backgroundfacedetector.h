#pragma once

#include <condition_variable>
#include <mutex>
#include <opencv2/core.hpp>
#include <thread>
#include <vector>

namespace Orb {

// Runs full-picture face detection on a thread of its own so that finding new
// faces never stalls the frame loop. One request at a time.
class BackgroundFaceDetector
{
public:
    BackgroundFaceDetector();
    ~BackgroundFaceDetector();

    // Queues a gray picture whose detections are scaled by 1/scale; returns
    // false while a request is still running.
    bool submit(const cv::Mat &gray, double scale);
    // Takes a finished result (boxes in full-size coordinates).
    bool takeResult(std::vector<cv::Rect2f> &faces);
    // Waits for the running request and takes its result; false when none
    // was running.
    bool waitResult(std::vector<cv::Rect2f> &faces);
    bool isBusy();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    cv::Mat m_input;
    double m_scale = 1.0;
    bool m_pending = false;
    bool m_hasResult = false;
    bool m_quit = false;
    std::vector<cv::Rect2f> m_result;
    std::thread m_thread;
};

} // namespace Orb
