#include "camerasink.h"
#include "sinkoptions.h"
#include "systemv4l2api.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>
#include <unistd.h>

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

// The sink serves the process that started it and ends with it, however
// that one ends (a crash or SIGKILL included): once the sink has been handed
// to another parent, it stops as if asked to. The parent death signal of
// prctl is not used because it fires when the starting thread ends, not
// the process.
void watchParent(pid_t parent)
{
    std::thread([parent] {
        while (!stopRequested) {
            if (::getppid() != parent) {
                stopRequested = true;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }).detach();
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
    watchParent(::getppid());
    Sink::SystemV4l2Api api;
    Sink::CameraSink sink(options, api);
    return sink.run(stopRequested);
}
