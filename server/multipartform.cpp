#include "multipartform.h"

#include <algorithm>
#include <cctype>

namespace glint::server {

namespace {

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// The value of `key=` in a header such as Content-Disposition, quoted or not.
std::string attribute(const std::string &header, const std::string &key)
{
    const std::string low = lower(header);
    size_t at = 0;
    while ((at = low.find(key + "=", at)) != std::string::npos) {
        if (at == 0 || low[at - 1] == ' ' || low[at - 1] == ';')
            break;
        at += key.size();
    }
    if (at == std::string::npos)
        return {};
    size_t start = at + key.size() + 1;
    if (start < header.size() && header[start] == '"') {
        const size_t end = header.find('"', start + 1);
        return end == std::string::npos ? std::string() : header.substr(start + 1, end - start - 1);
    }
    const size_t end = header.find(';', start);
    std::string value = header.substr(start, end == std::string::npos ? std::string::npos : end - start);
    while (!value.empty() && value.back() == ' ')
        value.pop_back();
    return value;
}

bool parseHeaders(const std::string &block, FormPart &part)
{
    size_t start = 0;
    bool named = false;
    while (start < block.size()) {
        size_t end = block.find("\r\n", start);
        if (end == std::string::npos)
            end = block.size();
        const std::string line = block.substr(start, end - start);
        start = end + 2;
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            return false;
        const std::string key = lower(line.substr(0, colon));
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(' '));
        if (key == "content-disposition") {
            if (lower(value).rfind("form-data", 0) != 0)
                return false;
            part.name = attribute(value, "name");
            part.filename = attribute(value, "filename");
            named = !part.name.empty();
        } else if (key == "content-type") {
            part.contentType = value;
        }
    }
    return named;
}

} // namespace

std::string MultipartForm::boundaryOf(const std::string &contentType)
{
    if (lower(contentType).rfind("multipart/form-data", 0) != 0)
        return {};
    const std::string boundary = attribute(contentType, "boundary");
    return boundary.size() <= 70 ? boundary : std::string();
}

bool MultipartForm::parse(const std::string &contentType, const std::string &body,
                          std::vector<FormPart> &parts, std::string *error, size_t maxParts)
{
    parts.clear();
    const std::string boundary = boundaryOf(contentType);
    if (boundary.empty()) {
        *error = "crash reports are multipart/form-data uploads with a boundary";
        return false;
    }
    const std::string delimiter = "--" + boundary;
    size_t at = body.find(delimiter);
    if (at == std::string::npos) {
        *error = "the upload holds no parts";
        return false;
    }
    for (;;) {
        at += delimiter.size();
        if (body.compare(at, 2, "--") == 0)
            return !parts.empty() || (*error = "the upload holds no parts", false);
        if (body.compare(at, 2, "\r\n") != 0)
            break;
        at += 2;
        const size_t headersEnd = body.find("\r\n\r\n", at);
        if (headersEnd == std::string::npos || headersEnd - at > 8192)
            break;
        FormPart part;
        if (!parseHeaders(body.substr(at, headersEnd - at), part))
            break;
        const size_t contentStart = headersEnd + 4;
        const size_t next = body.find("\r\n" + delimiter, contentStart);
        if (next == std::string::npos)
            break;
        part.content = std::string_view(body).substr(contentStart, next - contentStart);
        parts.push_back(std::move(part));
        if (parts.size() > maxParts) {
            *error = "the upload has more than " + std::to_string(maxParts) + " parts";
            return false;
        }
        at = next + 2;
    }
    *error = "the multipart body is malformed";
    return false;
}

} // namespace glint::server
