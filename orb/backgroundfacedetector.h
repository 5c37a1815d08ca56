#pragma once

#include <condition_variable>
#include <mutex>
#include <opencv2/core.hpp>
#include <thread>
#include <vector>

namespace Orb {

// Runs the face tracker's detections on a thread of their own so that they
// never stall the frame loop. One job at a time; a job shares one copy of the
// gray frame between a search for new faces and the checks of every tracked
// face, so more faces add little to it.
class BackgroundFaceDetector
{
public:
    struct Check
    {
        int id = 0;
        cv::Rect2f box;    // where the face is expected
        float roll = 0.0f; // the face's tilt in radians, clockwise on screen
    };
    struct Job
    {
        cv::Mat gray;                  // the full-size gray frame (the job keeps it)
        bool search = false;           // look for new faces in the whole frame
        double searchScale = 1.0;      // the search runs on the frame scaled by this
        std::vector<cv::Rect2f> known; // faces already tracked: not new
        std::vector<Check> checks;     // faces to confirm around their box
    };
    struct CheckResult
    {
        int id = 0;
        bool found = false;
        cv::Rect2f expected; // the check's box
        cv::Rect2f box;      // where the face was found
    };
    struct Result
    {
        std::vector<cv::Rect2f> newFaces; // confirmed, full-size coordinates
        std::vector<CheckResult> checks;
    };

    BackgroundFaceDetector();
    ~BackgroundFaceDetector();

    // Queues a job; returns false while one is still running.
    bool submit(Job job);
    // Takes a finished result.
    bool takeResult(Result &result);
    // Waits for the running job and takes its result; false when none ran.
    bool waitResult(Result &result);
    bool isBusy();

    // The job's work, on the calling thread.
    static Result run(const Job &job);
    // Whether the face of a check is still there, looked for upright.
    static bool check(const cv::Mat &gray, const Check &check, cv::Rect2f &found);

    // A check only confirms a face already tracked in a small window, so it
    // accepts weaker matches than a search (whose threshold is 0).
    static constexpr double kCheckConfidence = -0.3;

private:
    void loop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    Job m_job;
    bool m_pending = false;
    bool m_hasResult = false;
    bool m_quit = false;
    Result m_result;
    std::thread m_thread;
};

} // namespace Orb
