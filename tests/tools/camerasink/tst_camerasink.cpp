// The camera sink's parts: device selection and format negotiation against
// a stand-in loopback device, the RGB to YUYV conversion, the pipe reader on
// a real FIFO, and the publishing loop.
#include "camerasink.h"
#include "fakeloopbackapi.h"
#include "fifoframereader.h"
#include "frameconverter.h"
#include "frameformat.h"
#include "loopbackoutput.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>
#include <cmath>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <thread>
#include <unistd.h>

namespace {

FakeLoopbackApi::Device webcam()
{
    FakeLoopbackApi::Device device;
    device.card = "Integrated Camera";
    device.driver = "uvcvideo";
    device.loopback = false;
    return device;
}

FakeLoopbackApi::Device loopback(const std::string &card)
{
    FakeLoopbackApi::Device device;
    device.card = card;
    return device;
}

// Writes whole frames into the sink's FIFO from a thread of its own (a
// frame is larger than the pipe).
void writeToPipe(const std::string &path, const std::vector<uint8_t> &bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY);
    if (fd < 0)
        return;
    std::size_t done = 0;
    while (done < bytes.size()) {
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
    for (std::size_t i = 0; i < frame.size(); i += 3) {
        frame[i] = r;
        frame[i + 1] = g;
        frame[i + 2] = b;
    }
    return frame;
}

template <typename Condition> bool waitUntil(Condition condition, int timeoutMs = 5000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QThread::msleep(2);
    }
    return true;
}

struct Bt601
{
    static double y(double r, double g, double b)
    {
        return 16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255;
    }
    static double u(double r, double g, double b)
    {
        return 128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255;
    }
    static double v(double r, double g, double b)
    {
        return 128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255;
    }
};

} // namespace

class TestCameraSink : public QObject
{
    Q_OBJECT

private slots:
    void selectsTheLabelledLoopbackDevice()
    {
        FakeLoopbackApi api;
        api.add("/dev/video0", webcam());
        auto namesake = webcam();
        namesake.card = "Glint Camera"; // a webcam that happens to share the label
        api.add("/dev/video1", namesake);
        api.add("/dev/video2", loopback("Other Loopback"));
        api.add("/dev/video3", loopback("Glint Camera"));
        Sink::LoopbackOutput output(api);
        std::string error;
        QVERIFY2(output.open("", error), error.c_str());
        QCOMPARE(output.devicePath(), std::string("/dev/video3"));
        const auto device = api.snapshot("/dev/video3");
        QVERIFY(device.formatSet);
        QCOMPARE(device.pixelFormat, uint32_t(V4L2_PIX_FMT_YUYV));
        QVERIFY(device.streaming);
        QVERIFY(output.isStreaming());
        QVERIFY(!api.snapshot("/dev/video2").formatSet);

        Sink::LoopbackOutput named(api);
        QVERIFY2(named.open("/dev/video2", error), "a device named on the command line needs no label");
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
        auto device = loopback ? ::loopback("Glint Camera") : webcam();
        device.exclusiveCaps = fault != "producer";
        device.otherProducer = fault.contains("producer");
        device.openBusy = fault == "openBusy";
        device.forceSmallFormat = fault == "small";
        api.add("/dev/video3", device);
        std::string error;
        QVERIFY(!Sink::LoopbackOutput(api).open(asked.toStdString(), error));
        QVERIFY2(error.find(message.toStdString()) != std::string::npos, error.c_str());
    }

    void aSecondSinkFindsTheDeviceBusy()
    {
        FakeLoopbackApi api;
        api.add("/dev/video2", loopback("Glint Camera"));
        Sink::LoopbackOutput first(api);
        std::string error;
        QVERIFY(first.open("", error));
        const std::vector<uint8_t> frame(Sink::kYuyvFrameBytes, 0x80);
        QVERIFY(first.writeFrame(frame.data(), error));

        Sink::LoopbackOutput second(api);
        QVERIFY(!second.open("", error));
        QVERIFY2(error.find("busy") != std::string::npos, error.c_str());
    }

    void refusedStreamOnAndShortWritesStillDeliverWholeFrames()
    {
        FakeLoopbackApi api;
        auto device = loopback("Glint Camera");
        device.streamOnAccepted = false;
        device.maxWriteChunk = 100000;
        api.add("/dev/video2", device);
        Sink::LoopbackOutput output(api);
        std::string error;
        QVERIFY(output.open("", error));
        QVERIFY(!output.isStreaming());
        std::vector<uint8_t> frame(Sink::kYuyvFrameBytes);
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = uint8_t(i * 7 + i / 4096);
        QVERIFY(output.writeFrame(frame.data(), error));
        QVERIFY(output.writeFrame(frame.data(), error));
        const auto written = api.snapshot("/dev/video2");
        QCOMPARE(written.framesWritten, std::size_t(2));
        QVERIFY(written.pending.empty());
        QVERIFY(written.lastFrame == frame);
        QCOMPARE(written.writeCalls, std::size_t(2 * 19));
    }

    void conversionFollowsBt601()
    {
        constexpr int width = 16;
        constexpr int height = 4;
        std::vector<uint8_t> rgb(width * height * 3);
        QRandomGenerator random(42);
        for (auto &byte : rgb)
            byte = uint8_t(random.bounded(256));
        // Corners of the colour cube as well as noise.
        const uint8_t corners[][3] = {{0, 0, 0}, {255, 255, 255}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
        for (int i = 0; i < 5; ++i)
            std::copy(corners[i], corners[i] + 3, rgb.begin() + i * 6);
        std::vector<uint8_t> yuyv(width * height * 2);
        Sink::FrameConverter(width, height).rgbToYuyv(rgb.data(), yuyv.data());

        // Each output byte against the formula rounded to the nearest integer.
        const auto deviation = [](uint8_t actual, double exact) {
            return std::abs(int(actual) - int(std::lround(exact)));
        };
        int worst = 0;
        for (int pair = 0; pair < width * height / 2; ++pair) {
            const uint8_t *p = &rgb[pair * 6];
            const uint8_t *out = &yuyv[pair * 4];
            worst = std::max(worst, deviation(out[0], Bt601::y(p[0], p[1], p[2])));
            worst = std::max(worst, deviation(out[2], Bt601::y(p[3], p[4], p[5])));
            // Chroma is shared by the two pixels of a pair.
            const double r = (p[0] + p[3]) / 2.0, g = (p[1] + p[4]) / 2.0, b = (p[2] + p[5]) / 2.0;
            worst = std::max(worst, deviation(out[1], Bt601::u(r, g, b)));
            worst = std::max(worst, deviation(out[3], Bt601::v(r, g, b)));
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

        std::vector<uint8_t> half(Sink::kRgbFrameBytes / 2, 0xAA);
        std::thread partial(writeToPipe, reader.pipePath(), half);
        while (reader.discardedPartialFrames() == 0)
            QVERIFY(reader.read(5000, error) == Sink::FifoFrameReader::Result::Timeout);
        partial.join();
        QVERIFY2(QFileInfo::exists(QString::fromStdString(reader.readyPath())),
                 "readiness is announced again");

        const auto whole = solidRgbFrame(1, 2, 3);
        std::thread writer(writeToPipe, reader.pipePath(), whole);
        Sink::FifoFrameReader::Result result;
        do {
            result = reader.read(5000, error);
        } while (result == Sink::FifoFrameReader::Result::Timeout);
        writer.join();
        QVERIFY(result == Sink::FifoFrameReader::Result::Frame);
        QVERIFY(reader.frame() == whole);
    }

    void deviceKeepsShowingTheLastFrame()
    {
        QTemporaryDir dir;
        FakeLoopbackApi api;
        api.add("/dev/video2", loopback("Glint Camera"));
        Sink::SinkOptions options;
        options.directory = dir.path().toStdString() + "/pipe";
        options.fps = 100;
        Sink::CameraSink sink(options, api);
        std::atomic<bool> stop{false};
        int exitCode = -1;
        std::thread loop([&] { exitCode = sink.run(stop); });

        // Black until the application sends something.
        QVERIFY(waitUntil([&] { return api.snapshot("/dev/video2").framesWritten >= 3; }));
        const auto black = api.snapshot("/dev/video2").lastFrame;
        QCOMPARE(int(black[0]), 16);
        QCOMPARE(int(black[1]), 128);

        std::vector<uint8_t> expected(Sink::kYuyvFrameBytes);
        const auto red = solidRgbFrame(255, 0, 0);
        Sink::FrameConverter(Sink::kFrameWidth, Sink::kFrameHeight).rgbToYuyv(red.data(), expected.data());
        writeToPipe(options.directory + "/" + Sink::kPipeName, red);
        QVERIFY(waitUntil([&] { return api.snapshot("/dev/video2").lastFrame == expected; }));
        const auto shown = api.snapshot("/dev/video2").framesWritten;
        // The application has paused: the same picture keeps flowing.
        QVERIFY(waitUntil([&] { return api.snapshot("/dev/video2").framesWritten >= shown + 5; }));
        QVERIFY(api.snapshot("/dev/video2").lastFrame == expected);

        stop = true;
        loop.join();
        QCOMPARE(exitCode, 0);
        QVERIFY(!QFileInfo::exists(QString::fromStdString(options.directory + "/" + Sink::kPipeName)));
        QVERIFY(!QFileInfo::exists(QString::fromStdString(options.directory + "/" + Sink::kReadyName)));
    }
};

QTEST_GUILESS_MAIN(TestCameraSink)
#include "tst_camerasink.moc"
