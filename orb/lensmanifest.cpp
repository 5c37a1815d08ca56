#include "lensmanifest.h"

#include "fileutils.h"
#include "jsonparser.h"

#include <algorithm>
#include <set>

namespace Orb {

namespace {

// Thrown inside this file only; load() turns it into the error text.
struct ManifestError
{
    int line;
    std::string reason;
};

[[noreturn]] void fail(const JsonValue &at, const std::string &reason)
{
    throw ManifestError{at.line, reason};
}

const JsonValue &require(const JsonValue &object, const std::string &key, JsonValue::Type type)
{
    const JsonValue *value = object.find(key);
    if (!value)
        fail(object, "missing \"" + key + "\"");
    if (value->type != type)
        fail(*value, "\"" + key + "\" must be " + JsonValue::typeName(type));
    return *value;
}

const JsonValue *optional(const JsonValue &object, const std::string &key, JsonValue::Type type)
{
    const JsonValue *value = object.find(key);
    if (value && value->type != type)
        fail(*value, "\"" + key + "\" must be " + JsonValue::typeName(type));
    return value;
}

std::string optionalString(const JsonValue &object, const std::string &key, const std::string &fallback = {})
{
    const JsonValue *value = optional(object, key, JsonValue::Type::String);
    return value ? value->string : fallback;
}

float optionalNumber(const JsonValue &object, const std::string &key, float fallback)
{
    const JsonValue *value = optional(object, key, JsonValue::Type::Number);
    return value ? static_cast<float>(value->number) : fallback;
}

bool optionalBool(const JsonValue &object, const std::string &key, bool fallback)
{
    const JsonValue *value = optional(object, key, JsonValue::Type::Bool);
    return value ? value->boolean : fallback;
}

std::vector<std::string> stringList(const JsonValue &array)
{
    std::vector<std::string> out;
    for (const auto &item : array.items) {
        if (!item.isString())
            fail(item, "expected a string in the list");
        out.push_back(item.string);
    }
    return out;
}

void readPair(const JsonValue &object, const std::string &key, float out[2])
{
    const JsonValue *value = optional(object, key, JsonValue::Type::Array);
    if (!value)
        return;
    if (value->items.size() != 2 || !value->items[0].isNumber() || !value->items[1].isNumber())
        fail(*value, "\"" + key + "\" must be two numbers");
    out[0] = static_cast<float>(value->items[0].number);
    out[1] = static_cast<float>(value->items[1].number);
}

template <typename T>
T lookup(const JsonValue &at, const std::string &what, const std::string &name,
         const std::vector<std::pair<const char *, T>> &table)
{
    std::string known;
    for (const auto &entry : table) {
        if (name == entry.first)
            return entry.second;
        known += (known.empty() ? "" : ", ") + std::string(entry.first);
    }
    fail(at, "unknown " + what + " \"" + name + "\" (known: " + known + ")");
}

class Reader
{
public:
    explicit Reader(LensManifest &out) : m(out) {}

    void read(const JsonValue &root)
    {
        if (!root.isObject())
            fail(root, "the manifest must be a JSON object");
        readHeader(root);
        if (const JsonValue *effects = optional(root, "effects", JsonValue::Type::Array)) {
            for (const auto &item : effects->items)
                m.effects.push_back(readEffect(item));
        }
        if (const JsonValue *behaviors = optional(root, "behaviors", JsonValue::Type::Array)) {
            for (const auto &item : behaviors->items)
                m.behaviors.push_back(readBehavior(item));
        }
    }

private:
    void readHeader(const JsonValue &root)
    {
        const JsonValue &version = require(root, "formatVersion", JsonValue::Type::Number);
        m.formatVersion = static_cast<int>(version.number);
        if (m.formatVersion > LensManifest::kFormatVersion)
            fail(version, "format version " + std::to_string(m.formatVersion) +
                              " is newer than this program supports (" +
                              std::to_string(LensManifest::kFormatVersion) + "); please update");
        if (m.formatVersion < 1)
            fail(version, "format version must be 1 or higher");
        const JsonValue &id = require(root, "id", JsonValue::Type::String);
        if (!LensManifest::isValidId(id.string))
            fail(id, "\"id\" must be 1 to 128 characters of A-Z, a-z, 0-9, '_' and '-'");
        m.id = id.string;
        const JsonValue &name = require(root, "name", JsonValue::Type::String);
        if (name.string.empty())
            fail(name, "\"name\" must not be empty");
        m.name = name.string;
        m.author = optionalString(root, "author");
        const JsonValue &icon = require(root, "icon", JsonValue::Type::String);
        requirePng(icon, icon.string);
        m.icon = icon.string;
        if (const JsonValue *preview = optional(root, "preview", JsonValue::Type::Object))
            readPreview(*preview);
        m.hint = optionalString(root, "hint");
        if (const JsonValue *triggers = optional(root, "externalTriggers", JsonValue::Type::Array))
            m.externalTriggers = stringList(*triggers);
        if (const JsonValue *assets = optional(root, "remoteAssets", JsonValue::Type::Array))
            m.remoteAssets = stringList(*assets);
    }

    void readPreview(const JsonValue &preview)
    {
        if (const JsonValue *frames = optional(preview, "frames", JsonValue::Type::Array)) {
            m.previewFrames = stringList(*frames);
            for (const auto &frame : frames->items)
                requirePng(frame, frame.string);
        }
        if (const JsonValue *interval = optional(preview, "frameIntervalMs", JsonValue::Type::Number)) {
            if (interval->number != static_cast<int>(interval->number) || interval->number < 1 ||
                interval->number > 60000)
                fail(*interval, "\"frameIntervalMs\" must be an integer from 1 to 60000");
            m.previewFrameIntervalMs = static_cast<int>(interval->number);
        }
    }

    void requirePng(const JsonValue &at, const std::string &relative)
    {
        requireFile(at, relative);
        if (!FileUtils::isPng(m.filePath(relative)))
            fail(at, "\"" + relative + "\" is not a PNG image");
    }

    void requireFile(const JsonValue &at, const std::string &relative)
    {
        if (relative.empty() || relative.find("..") != std::string::npos || relative[0] == '/')
            fail(at, "\"" + relative + "\" must be a path inside the lens folder");
        if (!FileUtils::fileExists(m.filePath(relative)))
            fail(at, "file \"" + relative + "\" not found in the lens folder");
    }

    // Images may name a remote asset ("asset:<id>") that the host provides.
    void requireImage(const JsonValue &at, const std::string &ref)
    {
        if (ref.rfind("asset:", 0) == 0) {
            std::string asset = ref.substr(6);
            if (std::find(m.remoteAssets.begin(), m.remoteAssets.end(), asset) == m.remoteAssets.end())
                fail(at, "asset \"" + asset + "\" is not listed in \"remoteAssets\"");
            return;
        }
        requireFile(at, ref);
    }

    LensEffectDefinition readEffect(const JsonValue &item)
    {
        if (!item.isObject())
            fail(item, "an effect must be an object");
        LensEffectDefinition e;
        e.line = item.line;
        const JsonValue &id = require(item, "id", JsonValue::Type::String);
        if (!m_effectIds.insert(id.string).second)
            fail(id, "effect id \"" + id.string + "\" is used twice");
        e.id = id.string;
        const JsonValue &type = require(item, "type", JsonValue::Type::String);
        e.kind = lookup<LensEffectKind>(type, "effect type", type.string,
                                        {{"shader", LensEffectKind::Shader},
                                         {"lut", LensEffectKind::Lut},
                                         {"sticker", LensEffectKind::Sticker}});
        e.visible = optionalBool(item, "visible", true);
        if (e.kind == LensEffectKind::Shader)
            readShader(item, e);
        else if (e.kind == LensEffectKind::Lut)
            readLut(item, e);
        else
            readSticker(item, e);
        return e;
    }

    void readShader(const JsonValue &item, LensEffectDefinition &e)
    {
        const JsonValue &file = require(item, "shader", JsonValue::Type::String);
        requireFile(file, file.string);
        e.shaderFile = file.string;
        e.scale = optionalNumber(item, "scale", 1.0f);
        if (e.scale <= 0.0f || e.scale > 1.0f)
            fail(item, "\"scale\" must be above 0 and at most 1");
        e.overlay = optionalBool(item, "overlay", false);
        if (const JsonValue *uniforms = optional(item, "uniforms", JsonValue::Type::Object)) {
            for (const auto &[name, value] : uniforms->members)
                e.uniforms[name] = readUniform(value);
        }
        if (const JsonValue *textures = optional(item, "textures", JsonValue::Type::Object)) {
            for (const auto &[name, value] : textures->members) {
                if (!value.isString())
                    fail(value, "a texture must name an image file");
                requireImage(value, value.string);
                e.textures[name] = value.string;
            }
        }
    }

    std::vector<float> readUniform(const JsonValue &value)
    {
        if (value.isNumber())
            return {static_cast<float>(value.number)};
        if (value.isArray() && !value.items.empty() && value.items.size() <= 4) {
            std::vector<float> out;
            for (const auto &v : value.items) {
                if (!v.isNumber())
                    fail(v, "uniform values must be numbers");
                out.push_back(static_cast<float>(v.number));
            }
            return out;
        }
        fail(value, "a uniform must be a number or a list of 2 to 4 numbers");
    }

    void readLut(const JsonValue &item, LensEffectDefinition &e)
    {
        const JsonValue &image = require(item, "image", JsonValue::Type::String);
        requireImage(image, image.string);
        e.image = image.string;
        e.intensity = optionalNumber(item, "intensity", 1.0f);
    }

    void readSticker(const JsonValue &item, LensEffectDefinition &e)
    {
        if (const JsonValue *image = optional(item, "image", JsonValue::Type::String)) {
            requireImage(*image, image->string);
            e.frames.push_back(image->string);
        } else if (const JsonValue *frames = optional(item, "frames", JsonValue::Type::Array)) {
            for (const auto &f : frames->items) {
                if (!f.isString())
                    fail(f, "expected an image file name");
                requireImage(f, f.string);
                e.frames.push_back(f.string);
            }
        }
        if (e.frames.empty())
            fail(item, "a sticker needs \"image\" or a non-empty \"frames\" list");
        e.fps = optionalNumber(item, "fps", 12.0f);
        e.loop = optionalBool(item, "loop", true);
        std::string anchor = optionalString(item, "anchor", "screen");
        e.anchor = lookup<LensAnchor>(item, "anchor", anchor,
                                      {{"screen", LensAnchor::Screen},
                                       {"eyes", LensAnchor::Eyes},
                                       {"leftEye", LensAnchor::LeftEye},
                                       {"rightEye", LensAnchor::RightEye},
                                       {"brows", LensAnchor::Brows},
                                       {"nose", LensAnchor::Nose},
                                       {"mouth", LensAnchor::Mouth},
                                       {"forehead", LensAnchor::Forehead},
                                       {"chin", LensAnchor::Chin}});
        e.size = optionalNumber(item, "size", e.anchor == LensAnchor::Screen ? 0.25f : 1.0f);
        readPair(item, "offset", e.offset);
        readPair(item, "position", e.position);
        e.followRoll = optionalBool(item, "followRoll", true);
    }

    LensBehaviorDefinition readBehavior(const JsonValue &item)
    {
        if (!item.isObject())
            fail(item, "a behavior must be an object");
        LensBehaviorDefinition b;
        b.line = item.line;
        const JsonValue &on = require(item, "on", JsonValue::Type::String);
        b.trigger = lookup<LensTrigger>(on, "trigger", on.string,
                                        {{"start", LensTrigger::Start},
                                         {"tap", LensTrigger::Tap},
                                         {"event", LensTrigger::Event},
                                         {"faceFound", LensTrigger::FaceFound},
                                         {"faceLost", LensTrigger::FaceLost},
                                         {"mouthOpened", LensTrigger::MouthOpened},
                                         {"eyebrowsRaised", LensTrigger::EyebrowsRaised},
                                         {"smile", LensTrigger::Smile},
                                         {"blink", LensTrigger::Blink}});
        if (b.trigger == LensTrigger::Event)
            b.eventName = require(item, "event", JsonValue::Type::String).string;
        const JsonValue &action = require(item, "do", JsonValue::Type::String);
        b.action = lookup<LensAction>(action, "action", action.string,
                                      {{"show", LensAction::Show},
                                       {"hide", LensAction::Hide},
                                       {"toggle", LensAction::Toggle},
                                       {"restart", LensAction::Restart},
                                       {"showHint", LensAction::ShowHint},
                                       {"hideHint", LensAction::HideHint}});
        if (b.action == LensAction::ShowHint)
            b.hint = require(item, "hint", JsonValue::Type::String).string;
        if (b.action != LensAction::ShowHint && b.action != LensAction::HideHint) {
            const JsonValue &effect = require(item, "effect", JsonValue::Type::String);
            if (!m_effectIds.count(effect.string))
                fail(effect, "no effect with id \"" + effect.string + "\"");
            b.effect = effect.string;
        }
        return b;
    }

    LensManifest &m;
    std::set<std::string> m_effectIds;
};

} // namespace

bool LensManifest::isValidId(const std::string &id)
{
    if (id.empty() || id.size() > 128)
        return false;
    return std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

bool LensManifest::load(const std::string &folder, LensManifest &out, std::string &error)
{
    out = LensManifest();
    out.folder = folder;
    const std::string path = folder + "/" + kFileName;
    std::string text;
    if (!FileUtils::readFile(path, text)) {
        error = path + ": file not found or not readable";
        return false;
    }
    JsonValue root;
    JsonParser parser(text);
    if (!parser.parse(root)) {
        error = path + ":" + std::to_string(parser.errorLine()) + ": invalid JSON: " + parser.errorText();
        return false;
    }
    try {
        Reader(out).read(root);
    } catch (const ManifestError &e) {
        error = path + ":" + std::to_string(e.line) + ": " + e.reason;
        return false;
    }
    return true;
}

} // namespace Orb
