#include "zipwriter.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>
#include <zlib.h>

namespace fs = std::filesystem;

namespace glint::server {

namespace {

// 2020-01-01 00:00 in MS-DOS form: fixed so archives are reproducible.
constexpr uint16_t kDosTime = 0;
constexpr uint16_t kDosDate = ((2020 - 1980) << 9) | (1 << 5) | 1;

struct Entry
{
    std::string name;
    uint32_t crc = 0;
    uint32_t compressedSize = 0;
    uint32_t size = 0;
    uint16_t method = 0;
    uint32_t offset = 0;
};

void put16(std::string &out, uint16_t v)
{
    out.push_back(char(v & 0xff));
    out.push_back(char(v >> 8));
}

void put32(std::string &out, uint32_t v)
{
    put16(out, uint16_t(v & 0xffff));
    put16(out, uint16_t(v >> 16));
}

bool deflateRaw(const std::string &input, std::string &output)
{
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return false;
    output.resize(deflateBound(&stream, uLong(input.size())));
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(input.data()));
    stream.avail_in = uInt(input.size());
    stream.next_out = reinterpret_cast<Bytef *>(output.data());
    stream.avail_out = uInt(output.size());
    const int rc = deflate(&stream, Z_FINISH);
    output.resize(stream.total_out);
    deflateEnd(&stream);
    return rc == Z_STREAM_END;
}

void appendHeader(std::string &out, const Entry &entry, bool central)
{
    put32(out, central ? 0x02014b50 : 0x04034b50);
    if (central)
        put16(out, 20); // made by
    put16(out, 20);     // needed to extract
    put16(out, 0x0800); // UTF-8 names
    put16(out, entry.method);
    put16(out, kDosTime);
    put16(out, kDosDate);
    put32(out, entry.crc);
    put32(out, entry.compressedSize);
    put32(out, entry.size);
    put16(out, uint16_t(entry.name.size()));
    put16(out, 0); // extra
    if (central) {
        put16(out, 0);          // comment
        put16(out, 0);          // disk
        put16(out, 0);          // internal attributes
        put32(out, 0644 << 16); // external attributes: a regular file
        put32(out, entry.offset);
    }
    out += entry.name;
}

std::vector<fs::path> sortedFiles(const fs::path &root, std::error_code &ec)
{
    std::vector<fs::path> files;
    for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
        if (it->is_regular_file(ec))
            files.push_back(it->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

bool ZipWriter::writeDirectory(const std::string &directory, const std::string &zipPath, std::string *error)
{
    auto fail = [error](const std::string &reason) {
        if (error)
            *error = reason;
        return false;
    };
    std::error_code ec;
    const auto files = sortedFiles(directory, ec);
    if (ec)
        return fail("cannot list " + directory + ": " + ec.message());

    std::string archive;
    std::vector<Entry> entries;
    for (const auto &file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in)
            return fail("cannot read " + file.string());
        std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (in.bad() || content.size() != fs::file_size(file, ec))
            return fail("cannot read " + file.string());
        if (content.size() >= 0xffffffffu || archive.size() >= 0xffffffffu)
            return fail("file too large for a zip archive: " + file.string());
        Entry entry;
        entry.name = fs::relative(file, directory).generic_string();
        entry.size = uint32_t(content.size());
        entry.crc = uint32_t(crc32(0, reinterpret_cast<const Bytef *>(content.data()), uInt(content.size())));
        std::string packed;
        if (deflateRaw(content, packed) && packed.size() < content.size()) {
            entry.method = 8;
        } else {
            packed = std::move(content);
            entry.method = 0;
        }
        entry.compressedSize = uint32_t(packed.size());
        entry.offset = uint32_t(archive.size());
        appendHeader(archive, entry, false);
        archive += packed;
        entries.push_back(std::move(entry));
    }
    if (entries.size() > 0xffff)
        return fail("too many files for a zip archive");

    const uint32_t centralOffset = uint32_t(archive.size());
    for (const auto &entry : entries)
        appendHeader(archive, entry, true);
    const uint32_t centralSize = uint32_t(archive.size()) - centralOffset;
    put32(archive, 0x06054b50);
    put16(archive, 0);
    put16(archive, 0);
    put16(archive, uint16_t(entries.size()));
    put16(archive, uint16_t(entries.size()));
    put32(archive, centralSize);
    put32(archive, centralOffset);
    put16(archive, 0);

    const std::string temporary = zipPath + ".part";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(archive.data(), std::streamsize(archive.size()));
        if (!out.flush())
            return fail("cannot write " + temporary);
    }
    fs::rename(temporary, zipPath, ec);
    if (ec)
        return fail("cannot write " + zipPath + ": " + ec.message());
    return true;
}

} // namespace glint::server
