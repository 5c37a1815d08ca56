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
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

using VCam::VirtualCamStreamWriter;

namespace {

bool writeIndexed(VirtualCamStreamWriter &writer, uint32_t index)
{
    const QByteArray frame = FramePattern::make(index);
    return writer.write(FramePattern::borrow(frame), frame.size());
}

// Writes frames with rising indices on a thread of its own until stopped,
// counting the writes that succeeded and failed.
class Producer
{
public:
    explicit Producer(VirtualCamStreamWriter &writer)
        : m_thread([this, &writer] {
              for (uint32_t index = 0; !m_stop; ++index) {
                  if (writeIndexed(writer, index))
                      ++written;
                  else
                      ++failed;
              }
          })
    {}
    ~Producer()
    {
        m_stop = true;
        m_thread.join();
    }
    std::atomic<int> written{0};
    std::atomic<int> failed{0};

private:
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
        QVERIFY(waitUntil([&] { return writer.isConnected(); }));

        // The reader here is slow (the test checks every byte of every frame)
        // and may pause longer than the writer waits; a frame given up is
        // reported as not written. Every frame reported written arrives
        // whole and in order, and nothing else arrives.
        constexpr int kFrames = 300;
        std::mutex mutex;
        std::vector<int64_t> written;
        std::atomic<bool> done{false};
        std::thread producer([&] {
            for (uint32_t i = 0; i < kFrames; ++i) {
                if (writeIndexed(writer, i)) {
                    std::lock_guard<std::mutex> lock(mutex);
                    written.push_back(i);
                }
            }
            done = true;
        });
        std::vector<int64_t> received;
        for (;;) {
            const bool finished = done;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (finished && received.size() == written.size())
                    break;
            }
            const QByteArray frame = sink.readFrame(finished ? 1000 : 10000);
            if (frame.isEmpty())
                break;
            received.push_back(FramePattern::indexOf(frame));
        }
        producer.join();
        QCOMPARE(received, written);
        QVERIFY2(written.size() >= kFrames / 2, qPrintable(QString("%1 of %2 frames written, %3 timeouts")
                                                               .arg(written.size())
                                                               .arg(kFrames)
                                                               .arg(writer.timeouts())));
    }

    void readerKilledMidStreamIsSurvivedAndReplaced()
    {
        VirtualCamStreamWriter writer;
        auto first = std::make_unique<SinkProcess>(directory());
        QVERIFY(first->start());
        QVERIFY(waitUntil([&] { return writer.isConnected(); }));
        Producer producer(writer);
        for (int i = 0; i < 3; ++i)
            QVERIFY(FramePattern::indexOf(first->readFrame()) >= 0);
        // The producer is blocked inside a frame when the reader dies.
        first->kill();
        QVERIFY(waitUntil([&] { return producer.failed > 0 && !writer.isConnected(); }));
        const int writtenBefore = producer.written;
        QTest::qWait(100);
        QCOMPARE(producer.written.load(), writtenBefore);

        SinkProcess second(directory());
        QVERIFY(second.start());
        QVERIFY(waitUntil([&] { return writer.isConnected(); }));
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
        QVERIFY(waitUntil([&] { return writer.isConnected(); }));

        constexpr auto kInterval = std::chrono::microseconds(1000000 / 30);
        std::atomic<bool> stop{false};
        std::atomic<int> calls{0};
        std::atomic<int64_t> longestUs{0};
        std::thread producer([&] {
            auto next = std::chrono::steady_clock::now();
            for (uint32_t index = 0; !stop; ++index) {
                const auto start = std::chrono::steady_clock::now();
                writeIndexed(writer, index);
                const int64_t took = std::chrono::duration_cast<std::chrono::microseconds>(
                                         std::chrono::steady_clock::now() - start)
                                         .count();
                longestUs = std::max<int64_t>(longestUs, took);
                ++calls;
                next += kInterval;
                std::this_thread::sleep_until(next);
            }
        });
        const auto stopProducer = qScopeGuard([&] {
            stop = true;
            ::kill(pid_t(sink.pid()), SIGCONT);
            producer.join();
        });

        int64_t last = -1;
        for (int i = 0; i < 10; ++i) {
            const int64_t index = FramePattern::indexOf(sink.readFrame());
            QVERIFY(index > last);
            last = index;
        }
        QVERIFY(::kill(pid_t(sink.pid()), SIGSTOP) == 0);
        QTest::qSleep(300); // what was under way when the reader stopped
        const int callsBefore = calls;
        longestUs = 0;
        QTest::qSleep(1500);
        const int callsDuring = calls - callsBefore;
        QVERIFY2(callsDuring >= 40, qPrintable(QString("%1 frames in 1.5 s").arg(callsDuring)));
        QVERIFY2(longestUs < 300000, qPrintable(QString("a write took %1 us").arg(longestUs.load())));
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
