// The camera sink's parts: device selection and format negotiation against
// a stand-in loopback device, the RGB to YUYV conversion, the pipe reader on
// a real FIFO, and the publishing loop.
#include "camerasink.h"
#include "fifoframereader.h"
#include "frameconverter.h"
#include "frameformat.h"
#include "loopbackoutput.h"
#include "v4l2api.h"

#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <map>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

// Stands in for video device nodes, with the behaviour of v4l2loopback
// 0.12.7 that the sink depends on: with exclusive_caps=1 a device offers
// output until a producer is active and capture only afterwards; a device
// whose format is held by another producer refuses a new one with EBUSY.
class FakeLoopbackApi : public Sink::V4l2Api
{
public:
    struct Device
    {
        std::string card = "Glint Camera";
        bool loopback = true; // false: an ordinary capture-only webcam
        bool exclusiveCaps = true;
        bool otherProducer = false;    // someone else is already publishing
        bool openBusy = false;         // open() fails with EBUSY
        bool forceSmallFormat = false; // answers S_FMT with 640x480
        // Observed:
        bool formatSet = false, streaming = false;
        uint32_t pixelFormat = 0;
        std::vector<uint8_t> lastFrame, pending; // the last complete frame, and what follows it
        std::size_t framesWritten = 0;
    };

    void add(const std::string &path, const Device &device)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_devices[path] = device;
    }
    Device snapshot(const std::string &path)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_devices.at(path);
    }
    std::vector<std::string> deviceNodes() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> nodes;
        for (const auto &entry : m_devices)
            nodes.push_back(entry.first);
        return nodes;
    }
    int open(const std::string &path) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_devices.find(path);
        if (found == m_devices.end())
            return -ENOENT;
        if (found->second.openBusy)
            return -EBUSY;
        m_open[m_nextFd] = path;
        return m_nextFd++;
    }
    void close(int fd) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open.erase(fd);
    }
    int ioctl(int fd, unsigned long request, void *arg) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_open.count(fd))
            return -EBADF;
        Device &device = m_devices[m_open[fd]];
        if (request == VIDIOC_QUERYCAP) {
            auto *cap = static_cast<v4l2_capability *>(arg);
            std::memset(cap, 0, sizeof *cap);
            std::strncpy(reinterpret_cast<char *>(cap->card), device.card.c_str(), sizeof cap->card - 1);
            std::strncpy(reinterpret_cast<char *>(cap->driver),
                         device.loopback ? Sink::kLoopbackDriver : "uvcvideo", sizeof cap->driver - 1);
            uint32_t caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
            if (device.loopback) {
                const bool producing = device.otherProducer || device.streaming || device.framesWritten > 0;
                caps = V4L2_CAP_READWRITE | V4L2_CAP_STREAMING |
                       (!device.exclusiveCaps ? V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_OUTPUT
                        : producing           ? V4L2_CAP_VIDEO_CAPTURE
                                              : V4L2_CAP_VIDEO_OUTPUT);
            }
            cap->device_caps = caps;
            cap->capabilities = caps | V4L2_CAP_DEVICE_CAPS;
            return 0;
        }
        if (request == VIDIOC_S_FMT) {
            auto *format = static_cast<v4l2_format *>(arg);
            if (!device.loopback || format->type != V4L2_BUF_TYPE_VIDEO_OUTPUT)
                return -EINVAL;
            if (device.otherProducer)
                return -EBUSY;
            auto &pix = format->fmt.pix;
            if (device.forceSmallFormat)
                pix.width = 640, pix.height = 480, pix.bytesperline = 1280;
            pix.sizeimage = pix.bytesperline * pix.height;
            device.formatSet = true;
            device.pixelFormat = pix.pixelformat;
            return 0;
        }
        if (request == VIDIOC_S_PARM)
            return device.loopback ? 0 : -ENOTTY;
        if (request == VIDIOC_STREAMON || request == VIDIOC_STREAMOFF) {
            device.streaming = request == VIDIOC_STREAMON && device.formatSet;
            return request == VIDIOC_STREAMOFF || device.streaming ? 0 : -EINVAL;
        }
        return -ENOTTY;
    }
    ssize_t write(int fd, const void *data, size_t size) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_open.count(fd))
            return -EBADF;
        Device &device = m_devices[m_open[fd]];
        const auto *bytes = static_cast<const uint8_t *>(data);
        device.pending.insert(device.pending.end(), bytes, bytes + size);
        if (device.pending.size() >= Sink::kYuyvFrameBytes) {
            const auto end = device.pending.begin() + Sink::kYuyvFrameBytes;
            device.lastFrame.assign(device.pending.begin(), end);
            device.pending.erase(device.pending.begin(), end);
            ++device.framesWritten;
        }
        return ssize_t(size);
    }

private:
    std::mutex m_mutex;
    std::map<std::string, Device> m_devices;
    std::map<int, std::string> m_open;
    int m_nextFd = 100;
};

FakeLoopbackApi::Device device(const std::string &card, bool loopback = true)
{
    FakeLoopbackApi::Device device;
    device.card = card;
    device.loopback = loopback;
    return device;
}

// Writes whole frames into the sink's FIFO (a frame is larger than the pipe,
// so from a thread of its own when someone reads meanwhile).
void writeToPipe(const std::string &path, const std::vector<uint8_t> &bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY);
    for (std::size_t done = 0; fd >= 0 && done < bytes.size();) {
        const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written <= 0)
            break;
        done += std::size_t(written);
    }
    ::close(fd);
}

std::vector<uint8_t> solidRgbFrame(uint8_t r, uint8_t g, uint8_t b)
{
    std::vector<uint8_t> frame(Sink::kRgbFrameBytes);
    for (std::size_t i = 0; i < frame.size(); i += 3)
        std::tie(frame[i], frame[i + 1], frame[i + 2]) = std::tie(r, g, b);
    return frame;
}

} // namespace

class TestCameraSink : public QObject
{
    Q_OBJECT

private slots:
    void selectsTheLabelledLoopbackDevice()
    {
        FakeLoopbackApi api;
        api.add("/dev/video0", device("Integrated Camera", false));
        api.add("/dev/video1", device("Glint Camera", false)); // a webcam that happens to share the label
        api.add("/dev/video2", device("Other Loopback"));
        api.add("/dev/video3", device("Glint Camera"));
        Sink::LoopbackOutput output(api);
        std::string error;
        QVERIFY2(output.open("", error), error.c_str());
        QCOMPARE(output.devicePath(), std::string("/dev/video3"));
        const auto chosen = api.snapshot("/dev/video3");
        QVERIFY(chosen.formatSet && chosen.streaming && output.isStreaming());
        QCOMPARE(chosen.pixelFormat, uint32_t(V4L2_PIX_FMT_YUYV));
        QVERIFY(!api.snapshot("/dev/video2").formatSet);
        QVERIFY2(Sink::LoopbackOutput(api).open("/dev/video2", error),
                 "a device named on the command line needs no label");
    }

    // Each way a device can be unusable, named in the error.
    void unusableDevicesAreNamed_data()
    {
        QTest::addColumn<bool>("loopback");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("asked"); // empty: found by its label
        QTest::addColumn<QString>("message");
        QTest::newRow("exclusive caps, capture only") << true << "exclusive+producer"
                                                      << ""
                                                      << "/dev/video3 is busy";
        QTest::newRow("format held by another producer") << true << "producer"
                                                         << ""
                                                         << "/dev/video3 is busy";
        QTest::newRow("open refused") << true << "openBusy"
                                      << ""
                                      << "/dev/video3 is busy";
        QTest::newRow("no labelled loopback") << false << ""
                                              << ""
                                              << "\"Glint Camera\"";
        QTest::newRow("named device missing") << true << ""
                                              << "/dev/video9"
                                              << "/dev/video9 cannot be opened";
        QTest::newRow("too small a format") << true << "small"
                                            << ""
                                            << "640x480";
    }

    void unusableDevicesAreNamed()
    {
        QFETCH(bool, loopback);
        QFETCH(QString, fault);
        QFETCH(QString, asked);
        QFETCH(QString, message);
        FakeLoopbackApi api;
        auto faulty = device("Glint Camera", loopback);
        faulty.exclusiveCaps = fault != "producer";
        faulty.otherProducer = fault.contains("producer");
        faulty.openBusy = fault == "openBusy";
        faulty.forceSmallFormat = fault == "small";
        api.add("/dev/video3", faulty);
        std::string error;
        QVERIFY(!Sink::LoopbackOutput(api).open(asked.toStdString(), error));
        QVERIFY2(error.find(message.toStdString()) != std::string::npos, error.c_str());
    }

    // Each output byte against the BT.601 formula rounded to the nearest
    // integer, on noise and the corners of the colour cube.
    void conversionFollowsBt601()
    {
        constexpr int width = 16, height = 4;
        std::vector<uint8_t> rgb(width * height * 3), yuyv(width * height * 2);
        QRandomGenerator random(42);
        for (auto &byte : rgb)
            byte = uint8_t(random.bounded(256));
        const uint8_t corners[][3] = {{0, 0, 0}, {255, 255, 255}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
        for (int i = 0; i < 5; ++i)
            std::copy(corners[i], corners[i] + 3, rgb.begin() + i * 6);
        Sink::FrameConverter(width, height).rgbToYuyv(rgb.data(), yuyv.data());

        auto y = [](double r, double g, double b) {
            return 16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255;
        };
        auto u = [](double r, double g, double b) {
            return 128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255;
        };
        auto v = [](double r, double g, double b) {
            return 128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255;
        };
        int worst = 0;
        for (int pair = 0; pair < width * height / 2; ++pair) {
            const uint8_t *p = &rgb[pair * 6], *out = &yuyv[pair * 4];
            // Chroma is shared by the two pixels of a pair.
            const double r = (p[0] + p[3]) / 2.0, g = (p[1] + p[4]) / 2.0, b = (p[2] + p[5]) / 2.0;
            for (const auto &[actual, exact] :
                 {std::pair{out[0], y(p[0], p[1], p[2])}, std::pair{out[2], y(p[3], p[4], p[5])},
                  std::pair{out[1], u(r, g, b)}, std::pair{out[3], v(r, g, b)}})
                worst = std::max(worst, std::abs(int(actual) - int(std::lround(exact))));
        }
        QVERIFY2(worst <= 1, qPrintable(QString("largest deviation %1").arg(worst)));
    }

    void pipeReaderDropsThePartialFrameOfAWriterThatLeft()
    {
        QTemporaryDir dir;
        Sink::FifoFrameReader reader(dir.path().toStdString() + "/pipe");
        std::string error;
        QVERIFY2(reader.open(error), error.c_str());
        QVERIFY(QFileInfo::exists(QString::fromStdString(reader.readyPath())));

        std::thread partial(writeToPipe, reader.pipePath(),
                            std::vector<uint8_t>(Sink::kRgbFrameBytes / 2, 0xAA));
        while (reader.discardedPartialFrames() == 0)
            QVERIFY(reader.read(5000, error) == Sink::FifoFrameReader::Result::Timeout);
        partial.join();
        QVERIFY2(QFileInfo::exists(QString::fromStdString(reader.readyPath())),
                 "readiness is announced again");

        const auto whole = solidRgbFrame(1, 2, 3);
        std::thread writer(writeToPipe, reader.pipePath(), whole);
        auto result = Sink::FifoFrameReader::Result::Timeout;
        while (result == Sink::FifoFrameReader::Result::Timeout)
            result = reader.read(5000, error);
        writer.join();
        QVERIFY(result == Sink::FifoFrameReader::Result::Frame);
        QVERIFY(reader.frame() == whole);
    }

    void deviceKeepsShowingTheLastFrame()
    {
        QTemporaryDir dir;
        FakeLoopbackApi api;
        api.add("/dev/video2", device("Glint Camera"));
        Sink::SinkOptions options;
        options.directory = dir.path().toStdString() + "/pipe";
        options.fps = 100;
        Sink::CameraSink sink(options, api);
        std::atomic<bool> stop{false};
        int exitCode = -1;
        std::thread loop([&] { exitCode = sink.run(stop); });
        auto shown = [&] { return api.snapshot("/dev/video2"); };

        // Black until the application sends something.
        QTRY_VERIFY(shown().framesWritten >= 3);
        QCOMPARE(int(shown().lastFrame[0]), 16);
        QCOMPARE(int(shown().lastFrame[1]), 128);

        std::vector<uint8_t> expected(Sink::kYuyvFrameBytes);
        const auto red = solidRgbFrame(255, 0, 0);
        Sink::FrameConverter(Sink::kFrameWidth, Sink::kFrameHeight).rgbToYuyv(red.data(), expected.data());
        writeToPipe(options.directory + "/" + Sink::kPipeName, red);
        QTRY_VERIFY(shown().lastFrame == expected);
        // The application has paused: the same picture keeps flowing.
        const auto count = shown().framesWritten;
        QTRY_VERIFY(shown().framesWritten >= count + 5);
        QVERIFY(shown().lastFrame == expected);

        stop = true;
        loop.join();
        QCOMPARE(exitCode, 0);
        for (const char *name : {Sink::kPipeName, Sink::kReadyName})
            QVERIFY(!QFileInfo::exists(QString::fromStdString(options.directory + "/" + name)));
    }
};

QTEST_GUILESS_MAIN(TestCameraSink)
#include "tst_camerasink.moc"
