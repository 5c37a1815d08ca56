// Person segmentation at 720p on the demo clip, in milliseconds per frame:
// - mask: shrinking the frame, the network, temporal smoothing and the
//   guided-filter fit, on one thread (what the segmentation worker does);
// - frame: the whole per-frame path of the processing worker (upload,
//   segmentation hand-over, compositing, read-back) with no effect, light
//   and strong blur and a replacement picture, the way the application runs
//   it (segmentation on its worker thread, the mask one frame behind), with
//   frames arriving at 30 fps.
// Wall-clock and process CPU time (all threads) are printed: CPU time shows
// a frame's cost even when other programs share the cores.
// Usage: bench_segmentation [frames]
#include <algorithm>
#include <benchsupport.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <orb/coremanager.h>
#include <orb/personsegmenter.h>
#include <orb/texturereader.h>
#include <string>
#include <thread>
#include <vector>

namespace {

double nowMs()
{
    return Bench::msSince({});
}

double cpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

void report(const char *name, const std::vector<double> &wall, const std::vector<double> &cpu)
{
    std::printf("%-22s median %6.2f  p99 %6.2f  cpu median %6.2f ms\n", name, Bench::percentile(wall, 0.5),
                Bench::percentile(wall, 0.99), Bench::percentile(cpu, 0.5));
}

} // namespace

int main(int argc, char **argv)
{
    const int frames = argc > 1 ? std::max(30, std::atoi(argv[1])) : 300;
    cv::VideoCapture clip(BENCH_DEMO_CLIP);
    std::vector<cv::Mat> rgba;
    cv::Mat frame;
    while (clip.read(frame) && rgba.size() < 180) {
        cv::Mat converted;
        cv::cvtColor(frame, converted, cv::COLOR_BGR2RGBA);
        rgba.push_back(converted);
    }
    if (rgba.empty()) {
        std::fprintf(stderr, "cannot read %s\n", BENCH_DEMO_CLIP);
        return 1;
    }
    std::printf("%d frames of %dx%d from the demo clip, load average %s\n", frames, rgba[0].cols,
                rgba[0].rows, Bench::loadAverage().constData());

    // The core sets the process's OpenCV threading: make it first, as the
    // application does, so the mask is timed the way the worker runs it.
    Orb::CoreManager core(nullptr, false, nullptr, nullptr);
    {
        Orb::PersonSegmenter segmenter;
        std::string error;
        if (!segmenter.load(BENCH_SEGMENTATION_MODEL, error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        std::vector<double> wall, cpu;
        for (int i = 0; i < frames; ++i) {
            const double w = nowMs(), c = cpuMs();
            segmenter.process(Orb::PersonSegmenter::shrink(rgba[i % rgba.size()], true));
            wall.push_back(nowMs() - w);
            cpu.push_back(cpuMs() - c);
        }
        report("mask", wall, cpu);
    }

    core.setSegmentationModelPath(BENCH_SEGMENTATION_MODEL);
    Orb::TextureReader reader;
    const std::string picture = std::string(BENCH_DATA) + "/testdata/chelsea.png";
    struct Case
    {
        const char *name;
        Orb::BackgroundEffect effect;
    };
    using Mode = Orb::BackgroundEffect::Mode;
    using Strength = Orb::BackgroundEffect::BlurStrength;
    // Under lenses the same effects are measured end to end by
    // bench_processing --background.
    const Case cases[] = {{"frame, no effect", {}},
                          {"frame, light blur", {Mode::Blur, Strength::Light, ""}},
                          {"frame, strong blur", {Mode::Blur, Strength::Strong, ""}},
                          {"frame, picture", {Mode::Image, Strength::Light, picture}}};
    double clock = 0.0;
    for (const Case &c : cases) {
        if (!core.setBackgroundEffect(c.effect)) {
            std::fprintf(stderr, "%s: %s\n", c.name, core.getLastError().c_str());
            return 1;
        }
        std::vector<double> wall, cpu;
        double next = nowMs();
        for (int i = 0; i < frames + 10; ++i) {
            // Frames arrive at 30 fps, as from a camera.
            next += 1000.0 / 30.0;
            cv::Mat &m = rgba[i % rgba.size()];
            Orb::ImageBase image(m.data, m.cols, m.rows, static_cast<int>(m.step), Orb::ColorSpace::RGBA,
                                 Orb::ImageBase::doNothingDeallocator);
            const double w = nowMs(), cp = cpuMs();
            auto texture = core.processFrameToTexture(image, Orb::Timestamp::fromSeconds(clock += 1.0 / 30),
                                                      false, {1280, 720});
            reader.readTextureToImage(texture.buildNormalizedTexture());
            if (i >= 10) { // the first frames load the model and compile shaders
                wall.push_back(nowMs() - w);
                cpu.push_back(cpuMs() - cp);
            }
            const double rest = next - nowMs();
            if (rest > 0)
                std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(rest));
            else
                next = nowMs();
        }
        report(c.name, wall, cpu);
    }
    std::printf("load average at the end %s\n", Bench::loadAverage().constData());
    return 0;
}
