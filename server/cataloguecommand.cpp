#include "cataloguecommand.h"

#include "catalogue.h"
#include "database.h"
#include "serverconfig.h"

#include <cstdint>
#include <filesystem>
#include <iostream>

namespace glint::server {

namespace {

bool readNumber(const std::string &text, int64_t &out)
{
    try {
        size_t used = 0;
        out = std::stoll(text, &used);
        return used == text.size() && out >= 0;
    } catch (...) {
        return false;
    }
}

struct FeatureArgs
{
    std::vector<std::string> ids;
    int64_t position = -1;
    int64_t from = 0;
    int64_t until = 0;
};

bool parse(const std::vector<std::string> &args, FeatureArgs &out)
{
    for (size_t i = 0; i < args.size(); ++i) {
        int64_t *target = args[i] == "--position" ? &out.position
                          : args[i] == "--from"   ? &out.from
                          : args[i] == "--until"  ? &out.until
                                                  : nullptr;
        if (!target) {
            out.ids.push_back(args[i]);
            continue;
        }
        if (i + 1 >= args.size() || !readNumber(args[i + 1], *target)) {
            std::cerr << args[i] << " needs a non-negative number\n";
            return false;
        }
        ++i;
    }
    if (out.ids.empty())
        std::cerr << "Name at least one lens id.\n";
    return !out.ids.empty();
}

std::string databasePath(const ServerConfig &config)
{
    return (std::filesystem::path(config.dataDir) / "lenses.db").string();
}

} // namespace

int CatalogueCommand::feature(const ServerConfig &config, const std::vector<std::string> &args)
{
    FeatureArgs parsed;
    if (!parse(args, parsed))
        return 2;
    Database database(databasePath(config));
    Catalogue catalogue(database);
    int position =
        parsed.position >= 0 ? int(parsed.position) : int(catalogue.featuredAt(INT64_MAX / 2).size());
    int failures = 0;
    for (const auto &id : parsed.ids) {
        if (!catalogue.find(id)) {
            std::cerr << "No lens with id \"" << id << "\"\n";
            ++failures;
            continue;
        }
        catalogue.schedule(id, position++, parsed.from, parsed.until);
        std::cout << "Featured " << id << "\n";
    }
    return failures == 0 ? 0 : 1;
}

int CatalogueCommand::unfeature(const ServerConfig &config, const std::vector<std::string> &args)
{
    if (args.empty()) {
        std::cerr << "Name at least one lens id.\n";
        return 2;
    }
    Database database(databasePath(config));
    Catalogue catalogue(database);
    for (const auto &id : args)
        catalogue.unschedule(id);
    return 0;
}

int CatalogueCommand::remove(const ServerConfig &config, const std::vector<std::string> &args)
{
    if (args.empty()) {
        std::cerr << "Name at least one lens id.\n";
        return 2;
    }
    Database database(databasePath(config));
    Catalogue catalogue(database);
    int failures = 0;
    for (const auto &id : args) {
        if (!catalogue.remove(id)) {
            std::cerr << "No lens with id \"" << id << "\"\n";
            ++failures;
            continue;
        }
        std::error_code ec;
        std::filesystem::remove(std::filesystem::path(config.dataDir) / "archives" / (id + ".zip"), ec);
        std::filesystem::remove_all(std::filesystem::path(config.dataDir) / "media" / id, ec);
        std::cout << "Removed " << id << "\n";
    }
    return failures == 0 ? 0 : 1;
}

} // namespace glint::server
