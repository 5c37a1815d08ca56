#pragma once

#include <string>

namespace Sink {

// Command line of glint-camera-sink.
struct SinkOptions
{
    enum class Format { Rgb, Yuyv };

    std::string directory; // where the pipe and the ready marker live
    std::string device;    // empty: the first device labelled "Glint Camera"
    std::string output;    // empty: publish to the device; "-" is standard output
    Format format = Format::Yuyv;
    int fps = 30;

    // Returns false with a message in error for a bad command line.
    bool parse(int argc, const char *const *argv, std::string &error);
    static std::string defaultDirectory();
    static const char *usage();
};

} // namespace Sink
