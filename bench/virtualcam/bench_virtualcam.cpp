// Prints: the sink's RGB to YUYV conversion cost per 1280x720 frame, and the
// sustained frame rate through stream writer, FIFO and camera sink, with
// dropped and torn frames and the memory of both processes, and the frame
// rate of a 30 fps writing loop while its reader is stopped for 2 s.
//
// usage: bench_virtualcam [frames (default 10000)] [sink program]
#include "benchsupport.h"
#include "frameconverter.h"
#include "frameformat.h"
#include "virtualcamstreamwriter.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;
using Bench::msSince;
using Bench::residentKb;
constexpr std::size_t kFrameBytes = Sink::kRgbFrameBytes;

void fillFrame(std::vector<uint8_t> &frame, uint32_t index)
{
    std::memset(frame.data(), int(index & 0xFF), frame.size());
    std::memcpy(frame.data(), &index, sizeof index);
}

void benchConversion()
{
    std::vector<uint8_t> rgb(kFrameBytes), yuyv(Sink::kYuyvFrameBytes);
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = uint8_t((i * 2654435761u) >> 13);
    Sink::FrameConverter converter(Sink::kFrameWidth, Sink::kFrameHeight);
    converter.rgbToYuyv(rgb.data(), yuyv.data());
    std::vector<double> times;
    for (int i = 0; i < 500; ++i) {
        const auto one = Clock::now();
        converter.rgbToYuyv(rgb.data(), yuyv.data());
        times.push_back(msSince(one));
    }
    std::printf("conversion RGB888 -> YUYV 1280x720: %s\n", Bench::summary(times).c_str());
}

// The sink program with its output on a pipe to this process, and a writer
// connected to it.
struct SinkRun
{
    pid_t pid = 0;
    int output = -1;
    VCam::VirtualCamStreamWriter writer;

    SinkRun(const std::string &program, const std::string &directory, const char *format, const char *file)
    {
        int fds[2];
        if (::pipe(fds) < 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<std::string> args{program, "--dir", directory, "--output", file, "--format", format};
        std::vector<char *> argv;
        for (auto &arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        output = fds[0];
    }
    ~SinkRun()
    {
        stop();
        ::close(output);
    }
    void stop()
    {
        if (pid > 0 && ::kill(pid, SIGTERM) == 0)
            ::waitpid(pid, nullptr, 0);
        pid = 0;
    }
    bool connected()
    {
        const auto start = Clock::now();
        while (!writer.isConnected() && msSince(start) < 5000)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return writer.isConnected();
    }
    bool write(std::vector<uint8_t> &frame)
    {
        return writer.write(VCam::VirtualCamBuffer(frame.data(), [](const uint8_t *) {}), int(frame.size()));
    }
    // Reads frames from the sink's output until it ends or keepReading()
    // says no; counts frames that are not whole (every byte is checked) or,
    // with ordered, not newer than the one before.
    void read(const std::function<bool()> &keepReading, bool ordered, std::atomic<uint32_t> &received,
              std::atomic<uint32_t> &torn)
    {
        std::vector<uint8_t> frame(kFrameBytes), reference(kFrameBytes);
        int64_t last = -1;
        while (keepReading()) {
            for (std::size_t done = 0; done < frame.size();) {
                const ssize_t got = ::read(output, frame.data() + done, frame.size() - done);
                if (got <= 0)
                    return;
                done += std::size_t(got);
            }
            uint32_t index = 0;
            std::memcpy(&index, frame.data(), sizeof index);
            fillFrame(reference, index);
            torn += frame != reference || (ordered && int64_t(index) <= last);
            last = index;
            ++received;
        }
    }
};

// Frames flow writer -> FIFO -> sink. Verified, the sink passes them on
// through its standard output to this process, which checks every byte: a
// write the reader did not take in time is dropped (and reported as not
// written), every frame that arrives must be whole and newer than the one
// before, and every frame reported written must arrive. Otherwise the sink
// converts to YUYV and writes a file, as it does for a device.
void benchStream(const std::string &program, const std::string &directory, uint32_t frames, bool verified)
{
    SinkRun sink(program, directory, verified ? "rgb" : "yuyv", verified ? "-" : "/dev/null");
    if (!sink.connected())
        return void(std::printf("stream: the sink did not connect\n"));
    std::atomic<uint32_t> received{0}, torn{0}, written{0};
    std::atomic<bool> writing{true};
    std::thread reader([&] {
        if (verified)
            sink.read([&] { return writing || received < written; }, true, received, torn);
    });
    std::vector<uint8_t> frame(kFrameBytes);
    qint64 sinkRssEarly = 0, selfRssEarly = 0;
    const auto start = Clock::now();
    for (uint32_t i = 0; i < frames; ++i) {
        fillFrame(frame, i);
        written += sink.write(frame);
        if (i == std::min(frames - 1, 1000u)) {
            sinkRssEarly = residentKb(sink.pid);
            selfRssEarly = residentKb(::getpid());
        }
    }
    writing = false;
    for (int wait = 0; verified && wait < 5000 && received < written; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double elapsed = msSince(start);
    const qint64 sinkRss = residentKb(sink.pid), selfRss = residentKb(::getpid());
    sink.stop();
    reader.join(); // the sink's end of the stream ends it
    std::printf("stream %s: %u frames offered in %.0f ms, %u written = %.1f fps (%.0f MB/s); dropped %u, "
                "received %u, torn or out of order %u\n",
                verified ? "RGB, verified" : "to YUYV file (/dev/null)", frames, elapsed, written.load(),
                written * 1000.0 / elapsed, written * 2.7648 * 1000.0 / elapsed, frames - written,
                received.load(), torn.load());
    std::printf("  memory (RSS) at frame 1000 -> end: sink %lld -> %lld kB, writer process %lld -> %lld kB; "
                "writes given up (reader took nothing in time) %llu\n",
                sinkRssEarly, sinkRss, selfRssEarly, selfRss, (unsigned long long)sink.writer.timeouts());
}

// A reader that stops for 2 s (SIGSTOP) and resumes, while the writer runs
// at 30 frames per second as the processing loop does.
void benchStoppedReader(const std::string &program, const std::string &directory)
{
    SinkRun sink(program, directory, "rgb", "-");
    if (!sink.connected())
        return void(std::printf("stall: the sink did not connect\n"));
    std::atomic<bool> done{false};
    std::atomic<uint32_t> received{0}, torn{0};
    std::thread reader([&] { sink.read([&] { return !done; }, false, received, torn); });
    std::vector<uint8_t> frame(kFrameBytes);
    uint32_t index = 0;
    double longestWriteMs = 0;
    // Runs the 30 fps loop for 2 s; returns its frame rate.
    const auto run = [&](bool trackLongest) {
        const auto start = Clock::now();
        auto next = start;
        uint32_t frames = 0;
        for (; msSince(start) < 2000; ++frames) {
            fillFrame(frame, index++);
            const auto one = Clock::now();
            sink.write(frame);
            if (trackLongest)
                longestWriteMs = std::max(longestWriteMs, msSince(one));
            // As the processing loop's precise timer does: ticks missed
            // while a write blocked are skipped, not made up.
            next += std::chrono::microseconds(1000000 / 30);
            if (next < Clock::now())
                next = Clock::now() + std::chrono::microseconds(1000000 / 30);
            std::this_thread::sleep_until(next);
        }
        return frames * 1000.0 / msSince(start);
    };
    const double normal = run(false);
    ::kill(sink.pid, SIGSTOP);
    const double stalled = run(true);
    const uint64_t timeouts = sink.writer.timeouts();
    const uint32_t receivedBeforeResume = received;
    ::kill(sink.pid, SIGCONT);
    const auto resumeStart = Clock::now();
    const bool reconnected = sink.connected();
    const double reconnectMs = msSince(resumeStart);
    const double after = run(false);
    done = true;
    sink.stop();
    reader.join();
    std::printf(
        "stalled reader (SIGSTOP 2 s) at 30 fps: loop %.1f fps before, %.1f fps during the stall (%.1f%%), "
        "%.1f fps after; longest write during the stall %.0f ms; writes given up %llu; reconnected %s "
        "after %.0f ms; frames received %u (%u after resuming), torn %u\n",
        normal, stalled, 100.0 * stalled / normal, after, longestWriteMs, (unsigned long long)timeouts,
        reconnected ? "yes" : "NO", reconnectMs, received.load(), received - receivedBeforeResume,
        torn.load());
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
    std::printf("load average %s\n", Bench::loadAverage().constData());
    benchConversion();
    benchStream(program, directory, frames, true);
    benchStream(program, directory, std::max(1u, frames / 5), false);
    benchStoppedReader(program, directory);
    std::filesystem::remove_all(runtime);
    return 0;
}
