#pragma once

#include <cstdint>
#include <string>

namespace glint::server {

// The one byte range of a Range header that is answered. A header naming
// several ranges, or one that is not a plain "bytes=" range, is ignored
// and the whole file is sent: a reply is never larger than the file.
struct ByteRange
{
    enum class Kind { Whole, Part, Unsatisfiable };

    Kind kind = Kind::Whole;
    uint64_t offset = 0;
    uint64_t length = 0;

    static ByteRange parse(const std::string &header, uint64_t fileSize);
};

} // namespace glint::server
