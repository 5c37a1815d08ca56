// glint-lens-server: the Glint Camera lens backend.
#include "analyticsstats.h"
#include "cataloguecommand.h"
#include "crashcommand.h"
#include "importcommand.h"
#include "lensserver.h"
#include "serverconfig.h"

#include <csignal>
#include <iostream>
#include <set>

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
    // A client that goes away mid-answer must not end the server.
    std::signal(SIGPIPE, SIG_IGN);

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

// Splits the command's own arguments from the server options.
void splitArguments(const std::vector<std::string> &args, std::vector<std::string> &options,
                    std::vector<std::string> &own)
{
    static const std::set<std::string> flags = {"--featured"};
    static const std::set<std::string> valued = {"--position", "--from", "--until"};
    for (size_t i = 0; i < args.size(); ++i) {
        if (flags.count(args[i])) {
            own.push_back(args[i]);
        } else if (valued.count(args[i])) {
            own.push_back(args[i]);
            if (i + 1 < args.size())
                own.push_back(args[++i]);
        } else {
            options.push_back(args[i]);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string command;
    if (!args.empty() &&
        (args[0] == "import" || args[0] == "feature" || args[0] == "unfeature" || args[0] == "remove" ||
         args[0] == "stats" || args[0] == "crashes")) {
        command = args[0];
        args.erase(args.begin());
    }
    std::vector<std::string> options, positional;
    splitArguments(args, options, positional);

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
        if (command == "import")
            return ImportCommand::run(config, positional);
        if (command == "feature")
            return CatalogueCommand::feature(config, positional);
        if (command == "unfeature")
            return CatalogueCommand::unfeature(config, positional);
        if (command == "remove")
            return CatalogueCommand::remove(config, positional);
        if (command == "stats")
            return AnalyticsStats::run(config, positional);
        if (command == "crashes")
            return CrashCommand::run(config, positional);
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
