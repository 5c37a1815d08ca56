#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace glint::server {

struct FormPart
{
    std::string name;
    std::string filename;
    std::string contentType;
    std::string_view content; // points into the parsed body
};

// Splits a multipart/form-data body. Strict: the boundary from the content
// type (1 to 70 characters), every part with a Content-Disposition naming
// it, part headers at most 8 KiB, at most maxParts parts, a closing
// delimiter. Returns false with a reason otherwise.
class MultipartForm
{
public:
    static bool parse(const std::string &contentType, const std::string &body, std::vector<FormPart> &parts,
                      std::string *error, size_t maxParts = 32);
    static std::string boundaryOf(const std::string &contentType);
};

} // namespace glint::server
