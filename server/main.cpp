// glint-lens-server: the Glint Camera lens backend.
#include "catalogue.h"
#include "database.h"
#include "lensimporter.h"
#include "lensserver.h"
#include "lenssigner.h"
#include "serverconfig.h"

#include <csignal>
#include <filesystem>
#include <iostream>

using namespace glint::server;

namespace {

int importLenses(const ServerConfig &config, std::vector<std::string> folders)
{
    bool featured = false;
    std::vector<std::string> paths;
    for (auto &folder : folders) {
        if (folder == "--featured")
            featured = true;
        else
            paths.push_back(folder);
    }
    if (paths.empty()) {
        std::cerr << "import: name at least one lens folder\n";
        return 2;
    }
    LensSigner signer(config.keyPath);
    if (!signer.isValid()) {
        std::cerr << "import: " << signer.error() << "\n";
        return 1;
    }
    std::filesystem::create_directories(config.dataDir);
    Database database((std::filesystem::path(config.dataDir) / "lenses.db").string());
    Catalogue catalogue(database);
    LensImporter importer(config.dataDir, signer, catalogue, config.deeplinkBase);
    int failures = 0;
    int position = int(catalogue.featuredAt(INT64_MAX / 2).size());
    for (const auto &path : paths) {
        LensRecord lens;
        std::string error;
        if (!importer.importFolder(path, &lens, &error)) {
            std::cerr << "Lens not imported. Reason: " << error << "\n";
            ++failures;
            continue;
        }
        if (featured)
            catalogue.schedule(lens.id, position++, 0, 0);
        std::cout << "Imported " << lens.id << " (" << lens.name << ") checksum " << lens.checksum << "\n";
    }
    return failures == 0 ? 0 : 1;
}

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
            return importLenses(config, positional);
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
