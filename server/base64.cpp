#include "base64.h"

namespace glint::server {

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int valueOf(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}
} // namespace

std::string Base64::encode(const std::string &bytes)
{
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        const unsigned v =
            (unsigned char)bytes[i] << 16 | (unsigned char)bytes[i + 1] << 8 | (unsigned char)bytes[i + 2];
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], kAlphabet[v & 63]};
    }
    if (i + 1 == bytes.size()) {
        const unsigned v = (unsigned char)bytes[i] << 16;
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], '=', '='};
    } else if (i + 2 == bytes.size()) {
        const unsigned v = (unsigned char)bytes[i] << 16 | (unsigned char)bytes[i + 1] << 8;
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], '='};
    }
    return out;
}

std::optional<std::string> Base64::decode(const std::string &text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int padding = 0;
        unsigned v = 0;
        for (size_t k = 0; k < 4; ++k) {
            const char c = text[i + k];
            if (c == '=' && last && k >= 2 && (k == 3 || text[i + 3] == '=')) {
                ++padding;
                v <<= 6;
                continue;
            }
            const int value = valueOf(c);
            if (value < 0 || padding > 0)
                return std::nullopt;
            v = v << 6 | unsigned(value);
        }
        out.push_back(char(v >> 16));
        if (padding < 2)
            out.push_back(char((v >> 8) & 0xff));
        if (padding < 1)
            out.push_back(char(v & 0xff));
    }
    return out;
}

} // namespace glint::server
