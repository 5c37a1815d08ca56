#pragma once

#include "lensrecord.h"
#include "lensurls.h"

#include <cstddef>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace glint::server {

// The catalogue in memory, for answering list requests without touching
// the database: each lens's JSON object is rendered once, searches run over
// case-folded names and authors, and the top order is kept sorted by
// popularity (re-sorted lazily after popularity changes).
class LensIndex
{
public:
    explicit LensIndex(LensUrls urls) : m_urls(std::move(urls)) {}

    void rebuild(const std::vector<LensRecord> &lenses);
    void addPopularity(const std::string &id, int64_t delta);

    bool contains(const std::string &id) const;
    size_t size() const;
    // The lens object of one lens; empty when unknown.
    std::string lensJson(const std::string &id) const;

    // {"lenses": [...]} of the given ids in order, unknown ids skipped.
    std::string listJson(const std::vector<std::string> &ids) const;
    std::string topJson(size_t offset, size_t limit);
    std::string searchJson(const std::string &query, size_t limit) const;
    // {"lenses": [known ones], "invalid_ids": [the others]}
    std::string lookupJson(const std::vector<std::string> &ids) const;

    // Lower-cases ASCII and the Latin-1, Greek and Cyrillic capitals of UTF-8.
    static std::string fold(const std::string &text);

private:
    struct Entry
    {
        std::string id;
        std::string json;
        std::string foldedName;
        std::string foldedAuthor;
        int64_t popularity = 0;
        size_t nameOrder = 0; // position when sorted by folded name, then id
    };

    std::string renderLens(const LensRecord &lens) const;
    void sortTopIfNeeded();
    int searchRank(size_t entry, size_t offset, size_t queryLength) const;
    bool ranksBefore(const Entry &x, const Entry &y) const;

    LensUrls m_urls;
    mutable std::shared_mutex m_mutex;
    std::vector<Entry> m_entries;
    std::unordered_map<std::string, size_t> m_byId;
    // Every folded name and author, "name\nauthor\n" per entry, so that one
    // memmem pass over the catalogue finds the candidates of a search.
    std::string m_haystack;
    std::vector<size_t> m_haystackStarts;
    std::vector<size_t> m_top;
    bool m_topDirty = false;
};

} // namespace glint::server
