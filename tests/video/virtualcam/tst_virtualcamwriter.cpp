// The stream writer against the real camera sink over a real FIFO.
#include "framepattern.h"
#include "sinkprocess.h"
#include "virtualcamstreamwriter.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <csignal>
#include <mutex>
#include <thread>

using VCam::VirtualCamStreamWriter;

namespace {

bool writeIndexed(VirtualCamStreamWriter &writer, uint32_t index)
{
    const QByteArray frame = FramePattern::make(index);
    return writer.write(FramePattern::borrow(frame), frame.size());
}

// Writes frames with rising indices on a thread of its own until stopped or
// `limit` frames were tried, at most one per `interval`, keeping the indices
// of the writes that succeeded, the number of calls and the longest call.
class Producer
{
public:
    explicit Producer(VirtualCamStreamWriter &writer, uint32_t limit = UINT32_MAX,
                      std::chrono::microseconds interval = {})
        : m_thread([=, &writer] {
              auto next = std::chrono::steady_clock::now();
              for (uint32_t index = 0; !m_stop && index < limit; ++index) {
                  QElapsedTimer took;
                  took.start();
                  const bool ok = writeIndexed(writer, index);
                  longestUs = std::max<int64_t>(longestUs, took.nsecsElapsed() / 1000);
                  ++calls;
                  if (!ok)
                      ++failed;
                  std::lock_guard<std::mutex> lock(m_mutex);
                  if (ok)
                      m_written.push_back(index);
                  std::this_thread::sleep_until(next += interval);
              }
              done = true;
          })
    {}
    ~Producer()
    {
        m_stop = true;
        m_thread.join();
    }
    std::vector<int64_t> written()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_written;
    }
    std::atomic<int> failed{0}, calls{0};
    std::atomic<int64_t> longestUs{0};
    std::atomic<bool> done{false};

private:
    std::mutex m_mutex;
    std::vector<int64_t> m_written;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace

class TestVirtualCamWriter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // The default action of SIGPIPE is to end the process; the writer must
        // survive a vanished reader without anyone ignoring the signal.
        std::signal(SIGPIPE, SIG_DFL);
    }

    void init()
    {
        m_runtime.reset(new QTemporaryDir);
        QVERIFY(m_runtime->isValid());
        qputenv("XDG_RUNTIME_DIR", m_runtime->path().toLocal8Bit());
    }

    void framesAreDroppedUntilAReaderAppearsThenArriveWholeAndInOrder()
    {
        VirtualCamStreamWriter writer;
        QElapsedTimer timer;
        timer.start();
        for (uint32_t i = 0; i < 20; ++i)
            QVERIFY(!writeIndexed(writer, i));
        QVERIFY2(timer.elapsed() < 1000, "a write without a reader must not wait");

        SinkProcess sink(directory());
        QVERIFY(sink.start());
        QTRY_VERIFY(writer.isConnected());

        // The reader here is slow (the test checks every byte of every frame)
        // and may pause longer than the writer waits; a frame given up is
        // reported as not written. Every frame reported written arrives
        // whole and in order, and nothing else arrives.
        constexpr int kFrames = 300;
        Producer producer(writer, kFrames);
        std::vector<int64_t> received;
        for (;;) {
            const bool finished = producer.done;
            if (finished && received.size() == producer.written().size())
                break;
            const QByteArray frame = sink.readFrame(finished ? 1000 : 10000);
            if (frame.isEmpty())
                break;
            received.push_back(FramePattern::indexOf(frame));
        }
        QCOMPARE(received, producer.written());
        QVERIFY2(received.size() >= kFrames / 2, qPrintable(QString("%1 of %2 frames written, %3 timeouts")
                                                                .arg(received.size())
                                                                .arg(kFrames)
                                                                .arg(writer.timeouts())));
    }

    void readerKilledMidStreamIsSurvivedAndReplaced()
    {
        VirtualCamStreamWriter writer;
        auto first = std::make_unique<SinkProcess>(directory());
        QVERIFY(first->start());
        QTRY_VERIFY(writer.isConnected());
        Producer producer(writer);
        for (int i = 0; i < 3; ++i)
            QVERIFY(FramePattern::indexOf(first->readFrame()) >= 0);
        // The producer is blocked inside a frame when the reader dies.
        first->kill();
        QTRY_VERIFY(producer.failed > 0 && !writer.isConnected());
        const size_t writtenBefore = producer.written().size();
        QTest::qWait(100);
        QCOMPARE(producer.written().size(), writtenBefore);

        SinkProcess second(directory());
        QVERIFY(second.start());
        QTRY_VERIFY(writer.isConnected());
        const int64_t start = FramePattern::indexOf(second.readFrame());
        QVERIFY2(start >= 0, "the new reader's first frame must be whole");
        for (int64_t next = start + 1; next < start + 5; ++next)
            QCOMPARE(FramePattern::indexOf(second.readFrame()), next);
    }

    // A reader that stops (SIGSTOP) costs the writer one bounded wait: the
    // caller keeps its frame rate, and when the reader resumes it gets whole
    // frames again, never the rest of an old frame joined to a new one.
    void stoppedReaderNeitherFreezesTheWriterNorTearsFrames()
    {
        VirtualCamStreamWriter writer;
        SinkProcess sink(directory());
        QVERIFY(sink.start());
        QTRY_VERIFY(writer.isConnected());

        const auto resume = qScopeGuard([&] { ::kill(pid_t(sink.pid()), SIGCONT); });
        Producer producer(writer, UINT32_MAX, std::chrono::microseconds(1000000 / 30));
        int64_t last = -1;
        for (int i = 0; i < 10; ++i) {
            const int64_t index = FramePattern::indexOf(sink.readFrame());
            QVERIFY(index > last);
            last = index;
        }
        QVERIFY(::kill(pid_t(sink.pid()), SIGSTOP) == 0);
        QTest::qSleep(300); // what was under way when the reader stopped
        const int callsBefore = producer.calls;
        producer.longestUs = 0;
        QTest::qSleep(1500);
        const int callsDuring = producer.calls - callsBefore;
        QVERIFY2(callsDuring >= 40, qPrintable(QString("%1 frames in 1.5 s").arg(callsDuring)));
        QVERIFY2(producer.longestUs < 300000,
                 qPrintable(QString("a write took %1 us").arg(producer.longestUs)));
        QVERIFY(writer.timeouts() >= 1);
        QVERIFY(!writer.isConnected());

        QVERIFY(::kill(pid_t(sink.pid()), SIGCONT) == 0);
        int whole = 0;
        QElapsedTimer clock;
        clock.start();
        while (whole < 30 && clock.elapsed() < 10000) {
            const QByteArray frame = sink.readFrame();
            QVERIFY2(!frame.isEmpty(), "the resumed reader gets frames again");
            const int64_t index = FramePattern::indexOf(frame);
            QVERIFY2(index > last, qPrintable(QString("frame after %1 is torn or out of order").arg(last)));
            last = index;
            ++whole;
        }
        QCOMPARE(whole, 30);
        QVERIFY(writer.isConnected());
    }

private:
    QString directory() const { return m_runtime->path() + "/glint-camera"; }

    std::unique_ptr<QTemporaryDir> m_runtime;
};

QTEST_GUILESS_MAIN(TestVirtualCamWriter)
#include "tst_virtualcamwriter.moc"
