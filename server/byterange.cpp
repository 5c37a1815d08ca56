#include "byterange.h"

namespace glint::server {

namespace {

bool number(const std::string &text, uint64_t &out)
{
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    out = std::stoull(text);
    return true;
}

} // namespace

ByteRange ByteRange::parse(const std::string &header, uint64_t fileSize)
{
    ByteRange whole{Kind::Whole, 0, fileSize};
    const std::string prefix = "bytes=";
    if (header.size() > 200 || header.compare(0, prefix.size(), prefix) != 0)
        return whole;
    const std::string spec = header.substr(prefix.size());
    const size_t dash = spec.find('-');
    if (spec.find(',') != std::string::npos || dash == std::string::npos)
        return whole;
    const std::string first = spec.substr(0, dash);
    const std::string last = spec.substr(dash + 1);
    uint64_t a = 0, b = 0;
    if (first.empty()) { // the last b bytes
        if (!number(last, b))
            return whole;
        if (b == 0 || fileSize == 0)
            return {Kind::Unsatisfiable, 0, 0};
        b = std::min(b, fileSize);
        return {Kind::Part, fileSize - b, b};
    }
    if (!number(first, a) || (!last.empty() && (!number(last, b) || b < a)))
        return whole;
    if (a >= fileSize)
        return {Kind::Unsatisfiable, 0, 0};
    const uint64_t end = last.empty() ? fileSize - 1 : std::min(b, fileSize - 1);
    return {Kind::Part, a, end - a + 1};
}

} // namespace glint::server
