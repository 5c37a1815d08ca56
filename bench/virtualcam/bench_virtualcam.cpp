// Prints: the sink's RGB to YUYV conversion cost per 1280x720 frame, and the
// sustained frame rate through stream writer, FIFO and camera sink, with
// dropped and torn frames and the memory of both processes, and the frame
// rate of a 30 fps writing loop while its reader is stopped for 2 s.
//
// usage: bench_virtualcam [frames (default 10000)] [sink program]
#include "frameconverter.h"
#include "frameformat.h"
#include "virtualcamstreamwriter.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

long rssKb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    }
    return -1;
}

void fillFrame(std::vector<uint8_t> &frame, uint32_t index)
{
    std::memset(frame.data(), int(index & 0xFF), frame.size());
    std::memcpy(frame.data(), &index, sizeof index);
}

// Every byte is checked: a torn frame mixes the fills of two frames.
bool frameMatches(const std::vector<uint8_t> &frame, uint32_t index, std::vector<uint8_t> &reference)
{
    fillFrame(reference, index);
    return std::memcmp(frame.data(), reference.data(), frame.size()) == 0;
}

void benchConversion()
{
    std::vector<uint8_t> rgb(Sink::kRgbFrameBytes);
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = uint8_t((i * 2654435761u) >> 13);
    std::vector<uint8_t> yuyv(Sink::kYuyvFrameBytes);
    Sink::FrameConverter converter(Sink::kFrameWidth, Sink::kFrameHeight);
    converter.rgbToYuyv(rgb.data(), yuyv.data());
    constexpr int kRounds = 500;
    double best = 1e9;
    const auto start = Clock::now();
    for (int i = 0; i < kRounds; ++i) {
        const auto one = Clock::now();
        converter.rgbToYuyv(rgb.data(), yuyv.data());
        best = std::min(best, msSince(one));
    }
    std::printf("conversion RGB888 -> YUYV 1280x720: mean %.3f ms, best %.3f ms per frame (%d frames)\n",
                msSince(start) / kRounds, best, kRounds);
}

struct Sink
{
    pid_t pid = 0;
    int output = -1;
};

Sink startSink(const std::string &program, const std::string &directory, const std::string &format,
               const std::string &file)
{
    int fds[2];
    if (::pipe(fds) < 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::vector<std::string> args{program, "--dir", directory, "--output", file, "--format", format};
    std::vector<char *> argv;
    for (auto &arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    Sink sink;
    posix_spawn(&sink.pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    sink.output = fds[0];
    return sink;
}

void stopSink(Sink &sink)
{
    ::kill(sink.pid, SIGTERM);
    ::waitpid(sink.pid, nullptr, 0);
    ::close(sink.output);
}

bool readFrame(int fd, std::vector<uint8_t> &frame)
{
    std::size_t done = 0;
    while (done < frame.size()) {
        const ssize_t got = ::read(fd, frame.data() + done, frame.size() - done);
        if (got <= 0)
            return false;
        done += std::size_t(got);
    }
    return true;
}

bool waitConnected(const VCam::VirtualCamStreamWriter &writer)
{
    const auto start = Clock::now();
    while (!writer.isConnected()) {
        if (msSince(start) > 5000)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Starts the sink and waits for the writer to reach it; false (and the sink
// stopped) when it never does.
bool connectSink(Sink &sink, const VCam::VirtualCamStreamWriter &writer, const char *what)
{
    if (waitConnected(writer))
        return true;
    std::printf("%s: the sink did not connect\n", what);
    stopSink(sink);
    return false;
}

// Reads frames from the sink's output until it ends or keepReading() says
// no; counts frames that are not whole or, with ordered, not newer than the
// one before.
void readFrames(int fd, const std::function<bool()> &keepReading, bool ordered,
                std::atomic<uint32_t> &received, std::atomic<uint32_t> &torn)
{
    std::vector<uint8_t> frame(::Sink::kRgbFrameBytes);
    std::vector<uint8_t> reference(::Sink::kRgbFrameBytes);
    int64_t last = -1;
    while (keepReading() && readFrame(fd, frame)) {
        uint32_t index = 0;
        std::memcpy(&index, frame.data(), sizeof index);
        if (!frameMatches(frame, index, reference) || (ordered && int64_t(index) <= last))
            ++torn;
        last = index;
        ++received;
    }
}

// Frames flow writer -> FIFO -> sink -> stdout pipe -> this process, which
// checks every byte of every frame.
void benchVerifiedStream(const std::string &program, const std::string &directory, uint32_t frames)
{
    Sink sink = startSink(program, directory, "rgb", "-");
    VCam::VirtualCamStreamWriter writer;
    if (!connectSink(sink, writer, "stream"))
        return;
    // A write the reader did not take in time is dropped (and reported as
    // not written): every frame that arrives must be whole and newer than the
    // one before, and every frame reported written must arrive.
    std::atomic<uint32_t> received{0};
    std::atomic<uint32_t> torn{0};
    std::atomic<uint32_t> written{0};
    std::atomic<bool> writing{true};
    std::thread reader([&] {
        readFrames(
            sink.output, [&] { return writing || received < written; }, true, received, torn);
    });
    std::vector<uint8_t> frame(::Sink::kRgbFrameBytes);
    uint32_t dropped = 0;
    long sinkRssEarly = 0;
    long selfRssEarly = 0;
    const auto start = Clock::now();
    for (uint32_t i = 0; i < frames; ++i) {
        fillFrame(frame, i);
        VCam::VirtualCamBuffer buffer(frame.data(), [](const uint8_t *) {});
        if (writer.write(buffer, int(frame.size())))
            ++written;
        else
            ++dropped;
        if (i == std::min(frames - 1, 1000u)) {
            sinkRssEarly = rssKb(sink.pid);
            selfRssEarly = rssKb(::getpid());
        }
    }
    writing = false;
    // Wait for the reader to take what was written, then end it through the
    // sink's end of the stream.
    for (int wait = 0; wait < 5000 && received < written; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double elapsed = msSince(start);
    const long sinkRss = rssKb(sink.pid);
    const long selfRss = rssKb(::getpid());
    ::kill(sink.pid, SIGTERM);
    ::waitpid(sink.pid, nullptr, 0);
    reader.join(); // the sink's end of the stream ends it
    ::close(sink.output);
    const uint32_t through = frames - dropped;
    std::printf(
        "stream RGB, verified: %u frames offered in %.0f ms, %u written = %.1f fps (%.0f MB/s); dropped %u, "
        "received %u, torn or out of order %u\n",
        frames, elapsed, through, through * 1000.0 / elapsed, through * 2.7648 * 1000.0 / elapsed, dropped,
        received.load(), torn.load());
    std::printf("memory (RSS) at frame 1000 -> end: sink %ld -> %ld kB, writer process %ld -> %ld kB; "
                "writes given up (reader took nothing in time) %llu\n",
                sinkRssEarly, sinkRss, selfRssEarly, selfRss, (unsigned long long)writer.timeouts());
}

// The sink converting to YUYV and writing a file, as it does for a device.
void benchConvertedStream(const std::string &program, const std::string &directory, uint32_t frames)
{
    Sink sink = startSink(program, directory, "yuyv", "/dev/null");
    VCam::VirtualCamStreamWriter writer;
    if (!connectSink(sink, writer, "stream"))
        return;
    std::vector<uint8_t> frame(::Sink::kRgbFrameBytes);
    uint32_t dropped = 0;
    const auto start = Clock::now();
    for (uint32_t i = 0; i < frames; ++i) {
        fillFrame(frame, i);
        if (!writer.write(VCam::VirtualCamBuffer(frame.data(), [](const uint8_t *) {}), int(frame.size())))
            ++dropped;
    }
    const double elapsed = msSince(start);
    std::printf(
        "stream to YUYV file (/dev/null): %u frames in %.0f ms = %.1f fps; dropped %u; sink RSS %ld kB\n",
        frames, elapsed, frames * 1000.0 / elapsed, dropped, rssKb(sink.pid));
    stopSink(sink);
}

// A reader that stops for 2 s (SIGSTOP) and resumes, while the writer runs
// at 30 frames per second as the processing loop does. Prints the frame
// rate of the writing loop before and during the stall, the writes given
// up, and torn frames after the reader resumed.
void benchStoppedReader(const std::string &program, const std::string &directory)
{
    Sink sink = startSink(program, directory, "rgb", "-");
    VCam::VirtualCamStreamWriter writer;
    if (!connectSink(sink, writer, "stall"))
        return;
    std::atomic<bool> done{false};
    std::atomic<uint32_t> received{0};
    std::atomic<uint32_t> torn{0};
    std::atomic<uint32_t> receivedBeforeResume{0};
    std::thread reader([&] {
        readFrames(
            sink.output, [&] { return !done; }, false, received, torn);
    });
    constexpr auto kInterval = std::chrono::microseconds(1000000 / 30);
    std::vector<uint8_t> frame(::Sink::kRgbFrameBytes);
    uint32_t index = 0;
    double longestWriteMs = 0;
    // Runs the 30 fps loop for a while; returns the frames it produced.
    const auto runFor = [&](std::chrono::milliseconds span, bool trackLongest) {
        const auto start = Clock::now();
        auto next = start;
        uint32_t frames = 0;
        while (Clock::now() - start < span) {
            fillFrame(frame, index++);
            const auto one = Clock::now();
            writer.write(VCam::VirtualCamBuffer(frame.data(), [](const uint8_t *) {}), int(frame.size()));
            if (trackLongest)
                longestWriteMs = std::max(longestWriteMs, msSince(one));
            ++frames;
            // As the processing loop's precise timer does: ticks missed
            // while a write blocked are skipped, not made up.
            next += kInterval;
            if (next < Clock::now())
                next = Clock::now() + kInterval;
            std::this_thread::sleep_until(next);
        }
        return frames * 1000.0 / std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    };
    const double normal = runFor(std::chrono::milliseconds(2000), false);
    ::kill(sink.pid, SIGSTOP);
    const double stalled = runFor(std::chrono::milliseconds(2000), true);
    const uint64_t timeouts = writer.timeouts();
    receivedBeforeResume = received.load();
    ::kill(sink.pid, SIGCONT);
    const auto resumeStart = Clock::now();
    const bool reconnected = waitConnected(writer);
    const double reconnectMs = msSince(resumeStart);
    const double after = runFor(std::chrono::milliseconds(2000), false);
    done = true;
    ::kill(sink.pid, SIGTERM);
    ::waitpid(sink.pid, nullptr, 0);
    reader.join();
    ::close(sink.output);
    std::printf(
        "stalled reader (SIGSTOP 2 s) at 30 fps: loop %.1f fps before, %.1f fps during the stall (%.1f%%), "
        "%.1f fps after; longest write during the stall %.0f ms; writes given up %llu; reconnected %s "
        "after %.0f ms; frames received %u (%u after resuming), torn %u\n",
        normal, stalled, 100.0 * stalled / normal, after, longestWriteMs, (unsigned long long)timeouts,
        reconnected ? "yes" : "NO", reconnectMs, received.load(),
        received.load() - receivedBeforeResume.load(), torn.load());
}

} // namespace

int main(int argc, char **argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const uint32_t frames = argc > 1 ? uint32_t(std::atol(argv[1])) : 10000u;
    const std::string program = argc > 2 ? argv[2] : GLINT_BENCH_SINK_PATH;
    char pattern[] = "/tmp/bench-virtualcam-XXXXXX";
    const char *runtime = ::mkdtemp(pattern);
    if (!runtime || frames == 0)
        return 1;
    ::setenv("XDG_RUNTIME_DIR", runtime, 1);
    const std::string directory = std::string(runtime) + "/glint-camera";

    benchConversion();
    benchVerifiedStream(program, directory, frames);
    benchConvertedStream(program, directory, std::max(1u, frames / 5));
    benchStoppedReader(program, directory);
    std::filesystem::remove_all(runtime);
    return 0;
}
