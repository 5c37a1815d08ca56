// The stream writer against the real camera sink over a real FIFO.
#include "framepattern.h"
#include "sinkprocess.h"
#include "virtualcamstreamwriter.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

using VCam::VirtualCamStreamWriter;

namespace {

VCam::VirtualCamBuffer borrow(const QByteArray &frame)
{
    return VCam::VirtualCamBuffer(reinterpret_cast<const uint8_t *>(frame.constData()),
                                  [](const uint8_t *) {});
}

bool writeIndexed(VirtualCamStreamWriter &writer, uint32_t index)
{
    const QByteArray frame = FramePattern::make(index);
    return writer.write(borrow(frame), frame.size());
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

        constexpr int kFrames = 300;
        std::atomic<int> failures{0};
        uint64_t sentSum = FramePattern::checksum({});
        std::thread producer([&] {
            for (uint32_t i = 0; i < kFrames; ++i) {
                const QByteArray frame = FramePattern::make(i);
                sentSum = FramePattern::checksum(frame, sentSum);
                if (!writer.write(borrow(frame), frame.size()))
                    ++failures;
            }
        });
        uint64_t receivedSum = FramePattern::checksum({});
        int received = 0;
        for (; received < kFrames; ++received) {
            const QByteArray frame = sink.readFrame();
            if (FramePattern::indexOf(frame) != received)
                break;
            receivedSum = FramePattern::checksum(frame, receivedSum);
        }
        producer.join();
        QCOMPARE(failures.load(), 0);
        QCOMPARE(received, kFrames);
        QCOMPARE(receivedSum, sentSum);
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

private:
    QString directory() const { return m_runtime->path() + "/glint-camera"; }

    std::unique_ptr<QTemporaryDir> m_runtime;
};

QTEST_GUILESS_MAIN(TestVirtualCamWriter)
#include "tst_virtualcamwriter.moc"
