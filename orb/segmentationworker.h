#pragma once

#include "personsegmenter.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Orb {

// Runs a PersonSegmenter on a thread of its own, one frame at a time, so that
// the frame loop only pays for shrinking the frame: the mask of one frame is
// ready for the next. A frame that arrives while one is still being worked
// on replaces the waiting one (the newest frame matters, not every frame).
class SegmentationWorker
{
public:
    SegmentationWorker();
    ~SegmentationWorker();
    SegmentationWorker(const SegmentationWorker &) = delete;
    SegmentationWorker &operator=(const SegmentationWorker &) = delete;

    bool load(const std::string &modelPath, std::string &error);
    bool isLoaded() const { return m_loaded; }

    // Queues a frame shrunk by PersonSegmenter::shrink.
    void submit(cv::Mat small);
    // Takes the newest finished result; false when none is new.
    bool takeResult(PersonSegmenter::Result &result);
    // Runs a frame on the calling thread, after any queued one.
    PersonSegmenter::Result runNow(const cv::Mat &small);
    // Forgets the earlier frames and any queued one.
    void reset();
    // The error of the last frame that failed, cleared when taken.
    std::string takeError();

private:
    void loop();

    PersonSegmenter m_segmenter;
    bool m_loaded = false;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    cv::Mat m_pending;
    bool m_busy = false;
    bool m_hasResult = false;
    bool m_quit = false;
    PersonSegmenter::Result m_result;
    std::string m_error;
    std::thread m_thread;
};

} // namespace Orb
