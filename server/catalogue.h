#pragma once

#include "lensrecord.h"

#include <optional>
#include <string>
#include <vector>

namespace glint::server {

class Database;

// Lens rows, the featured schedule and popularity in the database.
class Catalogue
{
public:
    explicit Catalogue(Database &database) : m_database(database) {}

    // Inserts or replaces a lens; a re-imported lens keeps its popularity.
    void upsert(const LensRecord &lens);
    // Removes a lens and its schedule; false when there was none.
    bool remove(const std::string &id);
    std::vector<LensRecord> all();
    std::optional<LensRecord> find(const std::string &id);
    int count();
    void addPopularity(const std::string &id, int64_t delta);
    void setSignature(const std::string &id, const std::string &signature);

    // Small named values the server keeps about itself; empty when unset.
    std::string stateValue(const std::string &key);
    void setStateValue(const std::string &key, const std::string &value);

    // Features a lens from startsAt until endsAt (seconds since the epoch;
    // endsAt 0 means open-ended). Lower positions are listed first; the
    // lens goes before the one that held its position.
    void schedule(const std::string &id, int position, int64_t startsAt, int64_t endsAt);
    void unschedule(const std::string &id);
    // Ids featured at the given moment, in schedule order.
    std::vector<std::string> featuredAt(int64_t now);

private:
    Database &m_database;
};

} // namespace glint::server
