#include "lensmanifest.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;
using nlohmann::json;

namespace glint::server {

namespace {

// A path that stays inside the lens folder and names an existing PNG file.
bool checkImage(const std::string &folder, const std::string &relative, const std::string &what,
                std::string *error)
{
    const fs::path path(relative);
    bool escapes = relative.empty() || path.is_absolute();
    for (const auto &part : path)
        escapes = escapes || part == "..";
    if (escapes) {
        *error = what + " must be a relative path inside the lens folder: \"" + relative + "\"";
        return false;
    }
    std::ifstream in(fs::path(folder) / path, std::ios::binary);
    char magic[8] = {};
    if (!in.read(magic, sizeof magic) || std::string(magic, 8) != "\x89PNG\r\n\x1a\n") {
        *error = what + " is not a readable PNG file: \"" + relative + "\"";
        return false;
    }
    return true;
}

bool readString(const json &doc, const char *key, bool required, std::string &out, std::string *error)
{
    const auto it = doc.find(key);
    if (it == doc.end() || it->is_null()) {
        if (required)
            *error = std::string("\"") + key + "\" is missing";
        return !required;
    }
    if (!it->is_string()) {
        *error = std::string("\"") + key + "\" must be a string";
        return false;
    }
    out = it->get<std::string>();
    return true;
}

bool readPreview(const json &doc, LensManifest &m, std::string *error)
{
    const auto it = doc.find("preview");
    if (it == doc.end())
        return true;
    if (!it->is_object()) {
        *error = "\"preview\" must be an object";
        return false;
    }
    const auto frames = it->find("frames");
    if (frames != it->end()) {
        if (!frames->is_array()) {
            *error = "\"preview.frames\" must be an array of paths";
            return false;
        }
        for (const auto &frame : *frames) {
            if (!frame.is_string()) {
                *error = "\"preview.frames\" must be an array of paths";
                return false;
            }
            m.previewFrames.push_back(frame.get<std::string>());
        }
    }
    const auto interval = it->find("frameIntervalMs");
    if (interval != it->end()) {
        if (!interval->is_number_integer() || interval->get<long long>() <= 0 ||
            interval->get<long long>() > 60000) {
            *error = "\"preview.frameIntervalMs\" must be an integer from 1 to 60000";
            return false;
        }
        m.frameIntervalMs = interval->get<int>();
    }
    return true;
}

bool readTriggers(const json &doc, LensManifest &m, std::string *error)
{
    const auto it = doc.find("externalTriggers");
    if (it == doc.end())
        return true;
    if (!it->is_array()) {
        *error = "\"externalTriggers\" must be an array of strings";
        return false;
    }
    for (const auto &trigger : *it) {
        if (!trigger.is_string()) {
            *error = "\"externalTriggers\" must be an array of strings";
            return false;
        }
        m.externalTriggers.push_back(trigger.get<std::string>());
    }
    return true;
}

} // namespace

bool LensManifest::isValidId(const std::string &id)
{
    if (id.empty() || id.size() > 128)
        return false;
    for (const char c : id) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                        c == '_' || c == '-';
        if (!ok)
            return false;
    }
    return true;
}

bool LensManifest::load(const std::string &folder, std::string *error)
{
    std::string ignored;
    if (!error)
        error = &ignored;
    *this = LensManifest();
    std::ifstream in(fs::path(folder) / "lens.json", std::ios::binary);
    if (!in) {
        *error = "no lens.json in " + folder;
        return false;
    }
    const json doc = json::parse(in, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        *error = "lens.json is not a JSON object";
        return false;
    }
    const auto version = doc.find("formatVersion");
    if (version == doc.end() || !version->is_number_integer() || version->get<long long>() != 1) {
        *error = "\"formatVersion\" must be 1";
        return false;
    }
    formatVersion = 1;
    if (!readString(doc, "id", true, id, error) || !readString(doc, "name", true, name, error) ||
        !readString(doc, "author", false, author, error) || !readString(doc, "icon", true, icon, error) ||
        !readString(doc, "hint", false, hint, error) || !readPreview(doc, *this, error) ||
        !readTriggers(doc, *this, error))
        return false;
    if (!isValidId(id)) {
        *error = "\"id\" must be 1 to 128 characters of A-Z, a-z, 0-9, '_' and '-'";
        return false;
    }
    if (name.empty()) {
        *error = "\"name\" must not be empty";
        return false;
    }
    if (!checkImage(folder, icon, "\"icon\"", error))
        return false;
    for (const auto &frame : previewFrames) {
        if (!checkImage(folder, frame, "preview frame", error))
            return false;
    }
    if (!previewFrames.empty() && frameIntervalMs == 0)
        frameIntervalMs = 100;
    return true;
}

} // namespace glint::server
