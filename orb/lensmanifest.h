#pragma once

#include <map>
#include <string>
#include <vector>

namespace Orb {

// Where a sticker sits: on the screen or on a point of each tracked face.
enum class LensAnchor { Screen, Eyes, LeftEye, RightEye, Brows, Nose, Mouth, Forehead, Chin };

enum class LensEffectKind { Shader, Lut, Sticker };

struct LensEffectDefinition
{
    LensEffectKind kind = LensEffectKind::Shader;
    std::string id;
    int line = 0;
    bool visible = true;

    // shader: fragment source file, render scale, extra uniforms and images
    std::string shaderFile;
    float scale = 1.0f;
    bool overlay = false; // the pass draws only what it adds, blended over the picture
    std::map<std::string, std::vector<float>> uniforms;
    std::map<std::string, std::string> textures; // sampler name -> file or "asset:<id>"

    // lut: the look-up image and how strongly it applies
    std::string image;
    float intensity = 1.0f;

    // sticker: one image or an animated sequence placed on screen or a face
    std::vector<std::string> frames;
    float fps = 12.0f;
    bool loop = true;
    LensAnchor anchor = LensAnchor::Screen;
    float size = 0.25f;
    float offset[2] = {0.0f, 0.0f};
    float position[2] = {0.5f, 0.5f};
    bool followRoll = true;
};

enum class LensTrigger { Start, Tap, Event, FaceFound, FaceLost, MouthOpened, EyebrowsRaised, Smile, Blink };

enum class LensAction { Show, Hide, Toggle, Restart, ShowHint, HideHint };

struct LensBehaviorDefinition
{
    LensTrigger trigger = LensTrigger::Start;
    std::string eventName;
    LensAction action = LensAction::Show;
    std::string effect;
    std::string hint;
    int line = 0;
};

// The parsed manifest ("lens.json") of a lens folder. load() checks every
// reference so that a lens either loads completely or reports what is wrong.
// The engine, the lens server, the packer and the preview tool all read
// lenses through this one reader.
struct LensManifest
{
    static constexpr int kFormatVersion = 1;
    static constexpr const char *kFileName = "lens.json";

    int formatVersion = 0;
    std::string folder;
    std::string id;
    std::string name;
    std::string author;
    std::string icon;
    std::vector<std::string> previewFrames;
    int previewFrameIntervalMs = 100;
    std::string hint;
    std::vector<std::string> externalTriggers;
    std::vector<std::string> remoteAssets;
    std::vector<LensEffectDefinition> effects;
    std::vector<LensBehaviorDefinition> behaviors;

    // Reads folder/lens.json. On failure returns false and sets error to
    // "<file>:<line>: <reason>".
    static bool load(const std::string &folder, LensManifest &out, std::string &error);

    // 1 to 128 characters of A-Z, a-z, 0-9, '_' and '-'.
    static bool isValidId(const std::string &id);

    std::string filePath(const std::string &relative) const { return folder + "/" + relative; }
};

} // namespace Orb
