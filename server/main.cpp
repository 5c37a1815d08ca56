// glint-lens-server: the Glint Camera lens backend.
#include "importcommand.h"
#include "lensserver.h"
#include "serverconfig.h"

#include <csignal>
#include <iostream>

using namespace glint::server;

namespace {

int serve(const ServerConfig &config)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    // Blocked before any thread starts, so only sigwait below sees them.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    LensServer server(config);
    std::string error;
    if (!server.start(&error)) {
        std::cerr << "The lens server couldn't start. Reason: " << error << std::endl;
        return 1;
    }
    std::cout << "Listening on " << server.publicUrl() << "/vc/v1 (port " << server.port() << ")"
              << std::endl;
    for (;;) {
        int signal = 0;
        sigwait(&signals, &signal);
        if (signal != SIGHUP)
            break;
        server.reload();
        std::cout << "Catalogue reloaded" << std::endl;
    }
    server.stop();
    std::cout << "Stopped" << std::endl;
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    const bool import = !args.empty() && args.front() == "import";
    if (import)
        args.erase(args.begin());
    std::vector<std::string> positional;
    // --featured belongs to import; keep it out of the option parser.
    std::vector<std::string> options;
    for (const auto &arg : args)
        (arg == "--featured" ? positional : options).push_back(arg);

    ServerConfig config;
    std::string error;
    switch (config.parse(options, &positional, &error)) {
    case ServerConfig::Outcome::Help:
        std::cout << ServerConfig::helpText("glint-lens-server");
        return 0;
    case ServerConfig::Outcome::Error:
        std::cerr << error << "\nTry --help.\n";
        return 2;
    case ServerConfig::Outcome::Ok:
        break;
    }
    try {
        if (import)
            return ImportCommand::run(config, positional);
        if (!positional.empty()) {
            std::cerr << "unexpected argument \"" << positional.front() << "\"\nTry --help.\n";
            return 2;
        }
        return serve(config);
    } catch (const std::exception &e) {
        std::cerr << "The lens server failed. Reason: " << e.what() << std::endl;
        return 1;
    }
}
