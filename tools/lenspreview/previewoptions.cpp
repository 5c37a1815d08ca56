#include "previewoptions.h"

#include <cstdio>
#include <cstdlib>

namespace {
bool parseSize(const std::string &text, int &w, int &h)
{
    return std::sscanf(text.c_str(), "%dx%d", &w, &h) == 2 && w > 0 && h > 0;
}
} // namespace

std::string PreviewOptions::usage()
{
    return "usage: lenspreview [options] <lens folder> <input image or video> <output>\n"
           "  output: an image file, a video file (.mp4, .avi) or, with --frames, a folder\n"
           "  --frames N          write N frames named 00.png, 01.png, ... into the output folder\n"
           "  --interval MS       time between written frames (default 100)\n"
           "  --start SECONDS     lens time of the first written frame (default 1.0)\n"
           "  --size WxH          scale written frames to this size\n"
           "  --canvas WxH        centre a still image on a black canvas of this size\n"
           "  --tap X,Y@SECONDS   tap at normalized X,Y at that lens time\n"
           "  --event NAME@SECONDS  send an external event at that lens time\n"
           "  --assets DIR        serve remote assets from DIR\n"
           "                      (default: ../PrecachedAssets.bundle from the lens folder)\n"
           "  --debug             mark the tracked landmarks\n"
           "  --segmentation FILE the person-segmentation model (default: the build's)\n";
}

bool PreviewOptions::parse(int argc, char **argv, std::string &message)
{
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&]() -> std::string { return i + 1 < argc ? argv[++i] : std::string(); };
        if (arg == "--frames") {
            frames = std::atoi(value().c_str());
        } else if (arg == "--interval") {
            intervalMs = std::atoi(value().c_str());
        } else if (arg == "--start") {
            startSeconds = std::atof(value().c_str());
        } else if (arg == "--size") {
            if (!parseSize(value(), width, height))
                return message = "bad --size, expected WxH", false;
        } else if (arg == "--canvas") {
            if (!parseSize(value(), canvasWidth, canvasHeight))
                return message = "bad --canvas, expected WxH", false;
        } else if (arg == "--tap") {
            Input in;
            if (std::sscanf(value().c_str(), "%f,%f@%lf", &in.x, &in.y, &in.at) != 3)
                return message = "bad --tap, expected X,Y@SECONDS", false;
            inputs.push_back(in);
        } else if (arg == "--event") {
            const std::string v = value();
            const size_t at = v.rfind('@');
            if (at == std::string::npos || at == 0)
                return message = "bad --event, expected NAME@SECONDS", false;
            inputs.push_back({std::atof(v.c_str() + at + 1), v.substr(0, at)});
        } else if (arg == "--assets") {
            assetsFolder = value();
        } else if (arg == "--segmentation") {
            segmentationModel = value();
        } else if (arg == "--debug") {
            debug = true;
        } else if (arg == "--help" || arg == "-h") {
            return message = usage(), false;
        } else if (!arg.empty() && arg[0] == '-') {
            return message = "unknown option " + arg + "\n" + usage(), false;
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.size() != 3 || frames < 1 || intervalMs < 1)
        return message = usage(), false;
    lensFolder = positional[0];
    if (assetsFolder.empty())
        assetsFolder = lensFolder + "/../../PrecachedAssets.bundle";
    input = positional[1];
    output = positional[2];
    return true;
}
