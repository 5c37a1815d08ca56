#pragma once

#include <optional>
#include <string>

namespace glint::server {

// Standard base64 with padding.
class Base64
{
public:
    static std::string encode(const std::string &bytes);
    // Nothing when the text holds characters outside the alphabet or is cut.
    static std::optional<std::string> decode(const std::string &text);
};

} // namespace glint::server
