#include "camerasink.h"
#include "sinkoptions.h"
#include "systemv4l2api.h"

#include <atomic>
#include <csignal>
#include <iostream>

namespace {

std::atomic<bool> stopRequested{false};

void requestStop(int)
{
    stopRequested = true;
}

void installSignalHandlers()
{
    struct sigaction action = {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a blocking poll returns at once so the loop sees the flag.
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    // A closed standard output is reported as a write error, not a kill.
    signal(SIGPIPE, SIG_IGN);
}

} // namespace

int main(int argc, char **argv)
{
    Sink::SinkOptions options;
    std::string error;
    if (!options.parse(argc, argv, error)) {
        std::cerr << error << (error == Sink::SinkOptions::usage() ? "" : "\n");
        return Sink::CameraSink::BadUsage;
    }
    installSignalHandlers();
    Sink::SystemV4l2Api api;
    Sink::CameraSink sink(options, api);
    return sink.run(stopRequested);
}
