#include "segmentationworker.h"

#include "threadpriority.h"

namespace Orb {

SegmentationWorker::SegmentationWorker() : m_thread([this] { loop(); }) {}

SegmentationWorker::~SegmentationWorker()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool SegmentationWorker::load(const std::string &modelPath, std::string &error)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_idle.wait(lock, [this] { return !m_busy; });
    m_pending.release();
    m_hasResult = false;
    m_loaded = m_segmenter.load(modelPath, error);
    return m_loaded;
}

void SegmentationWorker::submit(cv::Mat small)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_loaded)
            return;
        m_pending = std::move(small);
    }
    m_wake.notify_one();
}

bool SegmentationWorker::takeResult(PersonSegmenter::Result &result)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasResult)
        return false;
    result = std::move(m_result);
    m_hasResult = false;
    return true;
}

PersonSegmenter::Result SegmentationWorker::runNow(const cv::Mat &small)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_pending.release();
    m_idle.wait(lock, [this] { return !m_busy; });
    m_hasResult = false;
    // The worker stays idle while this thread holds the lock.
    return m_segmenter.process(small);
}

void SegmentationWorker::reset()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_pending.release();
    m_idle.wait(lock, [this] { return !m_busy; });
    m_hasResult = false;
    m_segmenter.reset();
}

std::string SegmentationWorker::takeError()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string error;
    error.swap(m_error);
    return error;
}

void SegmentationWorker::loop()
{
    // The mask of a frame is needed only by a later one: the frame being
    // drawn goes first when the cores are busy.
    ThreadPriority::lowerCurrentThread();
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_quit || !m_pending.empty(); });
        if (m_quit)
            return;
        cv::Mat frame = std::move(m_pending);
        m_pending.release();
        m_busy = true;
        lock.unlock();
        PersonSegmenter::Result result;
        std::string error;
        try {
            result = m_segmenter.process(frame);
        } catch (const cv::Exception &e) {
            error = e.msg;
        }
        lock.lock();
        m_busy = false;
        if (error.empty()) {
            m_result = std::move(result);
            m_hasResult = true;
        } else {
            m_error = error;
        }
        m_idle.notify_all();
    }
}

} // namespace Orb
