#include "importcommand.h"

#include "catalogue.h"
#include "database.h"
#include "lensimporter.h"
#include "lensresigner.h"
#include "lenssigner.h"
#include "serverconfig.h"

#include <cstdint>
#include <filesystem>
#include <iostream>

namespace glint::server {

int ImportCommand::run(const ServerConfig &config, const std::vector<std::string> &args)
{
    bool featured = false;
    std::vector<std::string> folders;
    for (const auto &arg : args) {
        if (arg == "--featured")
            featured = true;
        else
            folders.push_back(arg);
    }
    if (folders.empty()) {
        std::cerr << "Name at least one lens folder.\n";
        return 2;
    }
    LensSigner signer(config.keyPath);
    if (!signer.isValid()) {
        std::cerr << "Lenses cannot be signed. Reason: " << signer.error() << "\n";
        return 1;
    }
    std::error_code ec;
    std::filesystem::create_directories(config.dataDir, ec);
    Database database((std::filesystem::path(config.dataDir) / "lenses.db").string());
    Catalogue catalogue(database);
    if (const int resigned = LensResigner::ensureSignedWith(catalogue, signer))
        std::cout << "Signed " << resigned << " stored lenses again with this key\n";
    LensImporter importer(config.dataDir, signer, catalogue, config.deeplinkBase);
    int position = int(catalogue.featuredAt(INT64_MAX / 2).size());
    int failures = 0;
    for (const auto &folder : folders) {
        LensRecord lens;
        std::string error;
        if (!importer.importFolder(folder, &lens, &error)) {
            std::cerr << "Lens not imported. Reason: " << error << "\n";
            ++failures;
            continue;
        }
        if (featured)
            catalogue.schedule(lens.id, position++, 0, 0);
        std::cout << "Imported " << lens.id << " (" << lens.name << "), checksum " << lens.checksum << "\n";
    }
    return failures == 0 ? 0 : 1;
}

} // namespace glint::server
