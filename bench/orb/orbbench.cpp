// Milliseconds per 1280x720 frame for the whole per-frame path the
// processing worker runs (upload, tracking, lens, read-back), with no lens,
// with face tracking alone, and with each sample lens.
// Usage: orb_bench [frames] [lens ids...]
#include "benchsupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <orb/complexeffect.h>
#include <orb/coremanager.h>
#include <orb/effectsmanager.h>
#include <orb/externaleventsystem.h>
#include <orb/facetracker.h>
#include <orb/landmarkmodel.h>
#include <orb/scene.h>
#include <orb/texturereader.h>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::string kData = ORB_BENCH_DATA;

// A 1280x720 RGBA frame: the portrait's face once, large, or four times in
// tiles of 640x360 at the size the four-face clip shows it.
std::vector<uint8_t> portraitFrame(bool four)
{
    cv::Mat portrait = cv::imread(kData + "/testdata/astronaut.png", cv::IMREAD_COLOR), scaled, rgba;
    cv::Mat canvas(720, 1280, CV_8UC3, cv::Scalar(128, 128, 128));
    if (four) {
        cv::resize(portrait, scaled, cv::Size(640, 640), 0, 0, cv::INTER_AREA);
        for (int tile = 0; tile < 4; ++tile)
            scaled(cv::Rect(0, 0, 640, 360))
                .copyTo(canvas(cv::Rect(tile % 2 * 640, tile / 2 * 360, 640, 360)));
    } else {
        cv::resize(portrait, scaled, cv::Size(), 1.4, 1.4, cv::INTER_AREA);
        const int rows = std::min(scaled.rows, 720);
        scaled(cv::Rect(0, 0, scaled.cols, rows)).copyTo(canvas(cv::Rect(384, 0, scaled.cols, rows)));
    }
    cv::cvtColor(canvas, rgba, cv::COLOR_BGR2RGBA);
    return std::vector<uint8_t>(rgba.data, rgba.data + rgba.total() * 4);
}

// Wall-clock and process CPU milliseconds of each measured frame. The CPU
// time (all threads, the software renderer's included) shows the cost of a
// frame even when other programs compete for the cores.
double processCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Runs `step` until `ready` says so (for up to a second), so that figures
// are taken with the face already found, then measures `frames` steps and
// prints their wall-clock times and the median process CPU time. The CPU
// time (all threads, the software renderer's included) shows the cost of a
// frame even when other programs compete for the cores.
void measure(
    const std::string &name, int frames, const std::function<void(int)> &step,
    const std::function<bool()> &ready = [] { return true; })
{
    for (int i = 0; i < 10 || (!ready() && i < 100); ++i) {
        step(i); // warm-up: shader compilation, first detection
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::vector<double> wall, cpu;
    for (int i = 0; i < frames; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = processCpuMs();
        step(i + 10);
        cpu.push_back(processCpuMs() - cpuStart);
        wall.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("%-16s %s   cpu median %6.2f ms\n", name.c_str(), Bench::summary(wall).c_str(),
                Bench::percentile(cpu, 0.5));
}

} // namespace

int main(int argc, char **argv)
{
    const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 300;
    std::vector<std::string> lenses = {"sunglasses", "party-hat", "big-eyes",  "retro-vhs", "film-noir",
                                       "confetti",   "fireworks", "color-pop", "heart-eyes"};
    if (argc > 2)
        lenses.assign(argv + 2, argv + argc);
    const int width = 1280, height = 720;
    std::vector<uint8_t> pixels = portraitFrame(false), four = portraitFrame(true);
    Orb::ImageBase image(pixels.data(), width, height, width * 4, Orb::ColorSpace::RGBA,
                         Orb::ImageBase::doNothingDeallocator);
    Orb::ImageBase fourImage(four.data(), width, height, width * 4, Orb::ColorSpace::RGBA,
                             Orb::ImageBase::doNothingDeallocator);

    Orb::CoreManager core(nullptr, false, nullptr, nullptr);
    Orb::TextureReader reader;
    auto frame = [&](int i) {
        auto texture = core.processFrameToTexture(image, Orb::Timestamp::fromSeconds(i / 30.0), false, {});
        reader.readTextureToImage(texture.buildNormalizedTexture());
    };
    measure("no lens", frames, frame);
    std::printf("renderer: %s, %d frames of %dx%d\n", core.getRendererName().c_str(), frames, width, height);

    for (const auto &[name, picture, faces] :
         {std::tuple{"tracking alone", &image, 1}, std::tuple{"tracking 4 faces", &fourImage, 4}}) {
        Orb::FaceTracker tracker;
        std::string error;
        if (!tracker.initialize(Orb::LandmarkModel::path(), error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        measure(
            name, frames, [&](int i) { tracker.process(*picture, i / 30.0, false); },
            [&] { return int(tracker.faces().size()) == faces; });
        std::printf("                 (%zu faces tracked)\n", tracker.faces().size());
    }

    for (const auto &id : lenses) {
        if (!core.useComplexEffect(
                std::make_shared<Orb::ComplexEffectDescriptor>(id, kData + "/lenses/" + id))) {
            std::printf("%-16s does not load: %s\n", id.c_str(), core.getLastError().c_str());
            continue;
        }
        auto scene = core.getEffectsManager()->getComplexEffect()->getScene();
        // Show what the lens hides at first, so its effect is what is measured.
        scene->getExternalEventSystem()->triggerEvents("trigger1", "");
        measure(
            id, frames,
            [&](int i) {
                if ((i % 90 == 0 && id != "party-hat" && id != "heart-eyes") ||
                    (i == 0 && id == "heart-eyes"))
                    core.processTouchEvent({Orb::TouchEvent::Type::Tap, 0.5f, 0.5f});
                frame(i);
            },
            [&] { return !core.getTrackedFaces().empty(); });
    }
    return 0;
}
