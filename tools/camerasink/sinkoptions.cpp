#include "sinkoptions.h"

#include <cstdlib>
#include <unistd.h>

namespace Sink {

std::string SinkOptions::defaultDirectory()
{
    // The same rule as the application's: the user's runtime directory, or
    // a private folder in /tmp where there is none.
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && *runtime)
        return std::string(runtime) + "/glint-camera";
    return "/tmp/glint-camera-" + std::to_string(::getuid());
}

const char *SinkOptions::usage()
{
    return "usage: glint-camera-sink [--dir DIR] [--device /dev/videoN] [--output FILE|-] "
           "[--format rgb|yuyv] [--fps N]\n"
           "  Reads 1280x720 RGB frames from DIR/GlintVirtualCamPipe and publishes them as YUYV\n"
           "  to the v4l2loopback device labelled \"Glint Camera\" (or the one given), or writes\n"
           "  every frame to FILE (\"-\" for standard output) as raw RGB or YUYV.\n";
}

bool SinkOptions::parse(int argc, const char *const *argv, std::string &error)
{
    directory = defaultDirectory();
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            error = usage();
            return false;
        }
        if (i + 1 >= argc) {
            error = "missing value for " + option;
            return false;
        }
        const std::string value = argv[++i];
        if (option == "--dir") {
            directory = value;
        } else if (option == "--device") {
            device = value;
        } else if (option == "--output") {
            output = value;
        } else if (option == "--format" && (value == "rgb" || value == "yuyv")) {
            format = value == "rgb" ? Format::Rgb : Format::Yuyv;
        } else if (option == "--fps" && std::atoi(value.c_str()) > 0) {
            fps = std::atoi(value.c_str());
        } else {
            error = "bad option " + option + " " + value;
            return false;
        }
    }
    if (directory.empty()) {
        error = "empty pipe directory";
        return false;
    }
    return true;
}

} // namespace Sink
