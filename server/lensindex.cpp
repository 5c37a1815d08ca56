#include "lensindex.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>
#include <openssl/evp.h>

using nlohmann::json;

namespace glint::server {

namespace {

// A stable, non-reversible handle for an author's creator page.
std::string authorSlug(const std::string &author)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(author.data(), author.size(), digest, &length, EVP_sha256(), nullptr);
    static const char digits[] = "0123456789abcdef";
    std::string slug;
    for (unsigned int i = 0; i < 8; ++i) {
        slug.push_back(digits[digest[i] >> 4]);
        slug.push_back(digits[digest[i] & 0x0f]);
    }
    return slug;
}

std::string joinLenses(const std::vector<const std::string *> &objects)
{
    size_t total = 16;
    for (const auto *object : objects)
        total += object->size() + 1;
    std::string out;
    out.reserve(total);
    out += "{\"lenses\":[";
    for (size_t i = 0; i < objects.size(); ++i) {
        if (i)
            out += ',';
        out += *objects[i];
    }
    out += "]}";
    return out;
}

bool startsWordAt(const char *text, size_t pos)
{
    if (pos == 0)
        return true;
    const unsigned char before = static_cast<unsigned char>(text[pos - 1]);
    return before < 0x80 && !std::isalnum(before);
}

// How the query, first found at pos, matches text: 0 exact, 1 prefix,
// 2 prefix of a later word, 3 anywhere.
int matchKind(const char *text, size_t textLength, const char *query, size_t queryLength, size_t pos)
{
    if (pos == 0)
        return textLength == queryLength ? 0 : 1;
    while (true) {
        if (startsWordAt(text, pos))
            return 2;
        const void *next = memmem(text + pos + 1, textLength - pos - 1, query, queryLength);
        if (!next)
            return 3;
        pos = size_t(static_cast<const char *>(next) - text);
    }
}

} // namespace

std::string LensIndex::fold(const std::string &text)
{
    std::string out = text;
    for (size_t i = 0; i < out.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(out[i]);
        if (c >= 'A' && c <= 'Z') {
            out[i] = char(c + 32);
        } else if (i + 1 < out.size() && (c == 0xC3 || c == 0xCE || c == 0xD0)) {
            unsigned char next = static_cast<unsigned char>(out[i + 1]);
            if (c == 0xC3 && next >= 0x80 && next <= 0x9E && next != 0x97) {
                out[i + 1] = char(next + 0x20); // À-Þ
            } else if (c == 0xCE && next >= 0x91 && next <= 0xA9 && next != 0xA2) {
                if (next <= 0x9F)
                    out[i + 1] = char(next + 0x20); // Α-Ο
                else {
                    out[i] = char(0xCF);
                    out[i + 1] = char(next - 0x20); // Π-Ω
                }
            } else if (c == 0xD0 && next >= 0x90 && next <= 0xAF) {
                if (next <= 0x9F)
                    out[i + 1] = char(next + 0x20); // А-П
                else {
                    out[i] = char(0xD1);
                    out[i + 1] = char(next - 0x20); // Р-Я
                }
            } else if (c == 0xD0 && next >= 0x80 && next <= 0x8F) {
                out[i] = char(0xD1);
                out[i + 1] = char(next + 0x10); // Ѐ-Џ
            }
            ++i;
        }
    }
    return out;
}

std::string LensIndex::renderLens(const LensRecord &lens) const
{
    const std::string poster = lens.previewCount > 0 ? m_urls.preview(lens.id, 0) : m_urls.icon(lens.id);
    json object = {
        {"unlockable_id", lens.id},
        {"glintcode_url", m_urls.glintcode(lens.id)},
        {"user_display_name", lens.author},
        {"lens_name", lens.name},
        {"lens_status", lens.status},
        {"deeplink", m_urls.deeplink(lens.id)},
        {"media_url", poster},
        {"icon_url", m_urls.icon(lens.id)},
        {"thumbnail_media_url", poster},
        {"thumbnail_media_poster_url", poster},
        {"standard_media_url", poster},
        {"standard_media_poster_url", poster},
        {"obfuscated_user_slug", authorSlug(lens.author)},
        {"image_sequence",
         {{"url_pattern", lens.previewCount > 0 ? m_urls.previewPattern(lens.id) : std::string()},
          {"frame_interval_ms", lens.previewIntervalMs},
          {"size", lens.previewCount}}},
    };
    return object.dump();
}

void LensIndex::rebuild(const std::vector<LensRecord> &lenses)
{
    std::vector<Entry> entries;
    entries.reserve(lenses.size());
    for (const auto &lens : lenses)
        entries.push_back({lens.id, renderLens(lens), fold(lens.name), fold(lens.author), lens.popularity});
    std::unique_lock guard(m_mutex);
    m_entries = std::move(entries);
    m_haystack.clear();
    m_haystackStarts.clear();
    for (const auto &entry : m_entries) {
        m_haystackStarts.push_back(m_haystack.size());
        m_haystack += entry.foldedName + '\n' + entry.foldedAuthor + '\n';
    }
    std::vector<size_t> byName(m_entries.size());
    for (size_t i = 0; i < byName.size(); ++i)
        byName[i] = i;
    std::sort(byName.begin(), byName.end(), [this](size_t a, size_t b) {
        const Entry &x = m_entries[a];
        const Entry &y = m_entries[b];
        return x.foldedName != y.foldedName ? x.foldedName < y.foldedName : x.id < y.id;
    });
    for (size_t i = 0; i < byName.size(); ++i)
        m_entries[byName[i]].nameOrder = i;
    m_byId.clear();
    m_top.resize(m_entries.size());
    for (size_t i = 0; i < m_entries.size(); ++i) {
        m_byId[m_entries[i].id] = i;
        m_top[i] = i;
    }
    m_topDirty = true;
}

void LensIndex::addPopularity(const std::string &id, int64_t delta)
{
    std::unique_lock guard(m_mutex);
    const auto it = m_byId.find(id);
    if (it == m_byId.end())
        return;
    m_entries[it->second].popularity += delta;
    m_topDirty = true;
}

bool LensIndex::contains(const std::string &id) const
{
    std::shared_lock guard(m_mutex);
    return m_byId.count(id) > 0;
}

size_t LensIndex::size() const
{
    std::shared_lock guard(m_mutex);
    return m_entries.size();
}

std::string LensIndex::lensJson(const std::string &id) const
{
    std::shared_lock guard(m_mutex);
    const auto it = m_byId.find(id);
    return it == m_byId.end() ? std::string() : m_entries[it->second].json;
}

std::string LensIndex::listJson(const std::vector<std::string> &ids) const
{
    std::shared_lock guard(m_mutex);
    std::vector<const std::string *> objects;
    for (const auto &id : ids) {
        const auto it = m_byId.find(id);
        if (it != m_byId.end())
            objects.push_back(&m_entries[it->second].json);
    }
    return joinLenses(objects);
}

void LensIndex::sortTopIfNeeded()
{
    {
        std::shared_lock guard(m_mutex);
        if (!m_topDirty)
            return;
    }
    std::unique_lock guard(m_mutex);
    if (!m_topDirty)
        return;
    std::sort(m_top.begin(), m_top.end(),
              [this](size_t a, size_t b) { return ranksBefore(m_entries[a], m_entries[b]); });
    m_topDirty = false;
}

std::string LensIndex::topJson(size_t offset, size_t limit)
{
    sortTopIfNeeded();
    std::shared_lock guard(m_mutex);
    std::vector<const std::string *> objects;
    for (size_t i = offset; i < m_top.size() && objects.size() < limit; ++i)
        objects.push_back(&m_entries[m_top[i]].json);
    return joinLenses(objects);
}

// Rank of an entry whose first match in the haystack is at offset: name
// matches (0 to 3) before author matches (4 exact, 5 prefix of a word, 6
// anywhere).
int LensIndex::searchRank(size_t entry, size_t offset, size_t queryLength) const
{
    const Entry &e = m_entries[entry];
    const char *query = m_haystack.data() + offset;
    const size_t nameStart = m_haystackStarts[entry];
    if (offset < nameStart + e.foldedName.size())
        return matchKind(e.foldedName.data(), e.foldedName.size(), query, queryLength, offset - nameStart);
    const size_t authorStart = nameStart + e.foldedName.size() + 1;
    const int author =
        matchKind(e.foldedAuthor.data(), e.foldedAuthor.size(), query, queryLength, offset - authorStart);
    return author == 0 ? 4 : (author <= 2 ? 5 : 6);
}

bool LensIndex::ranksBefore(const Entry &x, const Entry &y) const
{
    if (x.popularity != y.popularity)
        return x.popularity > y.popularity;
    return x.nameOrder < y.nameOrder;
}

std::string LensIndex::searchJson(const std::string &query, size_t limit) const
{
    const std::string folded = fold(query);
    if (folded.empty() || folded.find('\n') != std::string::npos)
        return joinLenses({});
    std::shared_lock guard(m_mutex);
    // Everything the ordering needs sits in the hit itself, so selecting the
    // best ones does not chase entries around memory.
    struct Hit
    {
        int rank;
        int64_t popularity;
        size_t nameOrder;
        size_t entry;
    };
    std::vector<Hit> hits;
    const char *begin = m_haystack.data();
    const char *end = begin + m_haystack.size();
    size_t entry = 0;
    for (const char *at = begin; at < end;) {
        const void *found = memmem(at, size_t(end - at), folded.data(), folded.size());
        if (!found)
            break;
        const size_t offset = size_t(static_cast<const char *>(found) - begin);
        while (entry + 1 < m_haystackStarts.size() && m_haystackStarts[entry + 1] <= offset)
            ++entry;
        const Entry &e = m_entries[entry];
        hits.push_back({searchRank(entry, offset, folded.size()), e.popularity, e.nameOrder, entry});
        // Each entry is ranked once: go on after it.
        at = entry + 1 < m_haystackStarts.size() ? begin + m_haystackStarts[entry + 1] : end;
    }
    auto better = [](const Hit &a, const Hit &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        if (a.popularity != b.popularity)
            return a.popularity > b.popularity;
        return a.nameOrder < b.nameOrder;
    };
    const size_t count = std::min(limit, hits.size());
    if (count < hits.size())
        std::nth_element(hits.begin(), hits.begin() + long(count), hits.end(), better);
    std::sort(hits.begin(), hits.begin() + long(count), better);
    std::vector<const std::string *> objects;
    for (size_t i = 0; i < count; ++i)
        objects.push_back(&m_entries[hits[i].entry].json);
    return joinLenses(objects);
}

std::string LensIndex::lookupJson(const std::vector<std::string> &ids) const
{
    std::shared_lock guard(m_mutex);
    std::vector<const std::string *> objects;
    json invalid = json::array();
    for (const auto &id : ids) {
        const auto it = m_byId.find(id);
        if (it != m_byId.end())
            objects.push_back(&m_entries[it->second].json);
        else
            invalid.push_back(id);
    }
    std::string out = joinLenses(objects);
    out.pop_back();
    out += ",\"invalid_ids\":" + invalid.dump() + "}";
    return out;
}

} // namespace glint::server
