#include "requesttarget.h"

namespace glint::server {

namespace {

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

bool RequestTarget::decode(const std::string &text, bool plusIsSpace, std::string &out)
{
    out.clear();
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%') {
            const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
            const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
            if (low < 0)
                return false;
            out.push_back(char(high * 16 + low));
            i += 2;
        } else {
            out.push_back(plusIsSpace && c == '+' ? ' ' : c);
        }
    }
    return isUtf8(out);
}

// Well-formed UTF-8 (no overlong forms, surrogates or code points above
// U+10FFFF) without control characters.
bool RequestTarget::isUtf8(const std::string &text)
{
    const auto *s = reinterpret_cast<const unsigned char *>(text.data());
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        const unsigned char c = s[i];
        if (c < 0x80) {
            if (c < 0x20 || c == 0x7f)
                return false;
            ++i;
            continue;
        }
        size_t length = 0;
        uint32_t code = 0;
        if ((c & 0xe0) == 0xc0) {
            length = 2;
            code = c & 0x1f;
        } else if ((c & 0xf0) == 0xe0) {
            length = 3;
            code = c & 0x0f;
        } else if ((c & 0xf8) == 0xf0) {
            length = 4;
            code = c & 0x07;
        } else {
            return false;
        }
        if (i + length > n)
            return false;
        for (size_t k = 1; k < length; ++k) {
            if ((s[i + k] & 0xc0) != 0x80)
                return false;
            code = (code << 6) | (s[i + k] & 0x3f);
        }
        static const uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < smallest[length] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
            return false;
        i += length;
    }
    return true;
}

bool RequestTarget::parse(const std::string &target, std::string &path, httplib::Params &params,
                          std::string *error, size_t maxValue)
{
    const size_t question = target.find('?');
    if (!decode(target.substr(0, question), false, path) || path.empty() || path[0] != '/') {
        *error = "the request path is not a well-formed, percent-encoded UTF-8 path";
        return false;
    }
    if (path.find("/../") != std::string::npos ||
        path.size() >= 3 && path.compare(path.size() - 3, 3, "/..") == 0) {
        *error = "the request path must not climb with \"..\"";
        return false;
    }
    params.clear();
    if (question == std::string::npos)
        return true;
    const std::string query = target.substr(question + 1);
    size_t start = 0;
    while (start <= query.size()) {
        size_t end = query.find('&', start);
        if (end == std::string::npos)
            end = query.size();
        const std::string pair = query.substr(start, end - start);
        start = end + 1;
        if (pair.empty())
            continue;
        const size_t equals = pair.find('=');
        std::string key, value;
        if (!decode(pair.substr(0, equals), true, key) ||
            (equals != std::string::npos && !decode(pair.substr(equals + 1), true, value))) {
            *error = "the query is not well-formed, percent-encoded UTF-8";
            return false;
        }
        if (key.size() > 64 || value.size() > maxValue) {
            *error = "a query parameter is too long";
            return false;
        }
        params.emplace(std::move(key), std::move(value));
        if (params.size() > 32) {
            *error = "too many query parameters";
            return false;
        }
    }
    return true;
}

} // namespace glint::server
