#include "scenerenderer.h"

#include "assetsystem.h"
#include "fileutils.h"
#include "imagebase.h"
#include "imagefile.h"
#include "rendertarget.h"
#include "scene.h"
#include "shaderlibrary.h"
#include "shaderprogram.h"

#include <GLES3/gl3.h>
#include <cmath>
#include <map>
#include <stdexcept>

namespace Orb::Mosaica {

namespace {

// An image of the lens, or a remote asset loaded once it has arrived.
struct ImageSlot
{
    std::string ref;
    Texture texture;
    bool failed = false;

    const Texture *resolve(const Scene &scene, const std::string &folder)
    {
        if (texture.isValid() || failed)
            return texture.isValid() ? &texture : nullptr;
        std::string path = folder + "/" + ref;
        if (ref.rfind("asset:", 0) == 0) {
            auto assets = scene.getAssetSystem();
            const std::string id = ref.substr(6);
            if (assets->state(id) == AssetSystem::State::Failed) {
                failed = true;
                return nullptr;
            }
            path = assets->path(id);
            if (path.empty())
                return nullptr;
        }
        std::string error;
        auto image = ImageFile::read(path, error);
        if (!image) {
            failed = true;
            return nullptr;
        }
        texture = Texture::fromImage(*image);
        return &texture;
    }
};

struct EffectRuntime
{
    const LensEffectDefinition *def = nullptr;
    std::unique_ptr<ShaderProgram> program;
    std::vector<ImageSlot> frames;             // sticker frames or the look-up image
    std::map<std::string, ImageSlot> samplers; // extra shader images
    std::unique_ptr<RenderTarget> reduced;     // for passes below full size
    bool readsTouch = false;
    bool readsSegmentation = false;
};

struct FaceUniforms
{
    int count = 0;
    float rect[16] = {};
    float leftEye[8] = {}, rightEye[8] = {}, nose[8] = {}, mouth[8] = {};
    float roll[4] = {};
    float expressions[16] = {};
    float landmarks[Face::kLandmarkCount * 2] = {};
};

FaceUniforms faceUniforms(const std::vector<Face> &faces, Size camera)
{
    FaceUniforms u;
    const float w = static_cast<float>(camera.width), h = static_cast<float>(camera.height);
    auto put = [&](float *arr, int i, Point p) { arr[i * 2] = p.x / w, arr[i * 2 + 1] = p.y / h; };
    u.count = static_cast<int>(std::min<size_t>(faces.size(), 4));
    for (int i = 0; i < u.count; ++i) {
        const Face &f = faces[i];
        float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
        for (const auto &p : f.landmarks)
            x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
        u.rect[i * 4] = x0 / w, u.rect[i * 4 + 1] = y0 / h;
        u.rect[i * 4 + 2] = (x1 - x0) / w, u.rect[i * 4 + 3] = (y1 - y0) / h;
        put(u.leftEye, i, f.leftEye());
        put(u.rightEye, i, f.rightEye());
        put(u.nose, i, f.noseTip());
        put(u.mouth, i, f.mouthCenter());
        u.roll[i] = f.roll();
        const FaceExpressions &e = f.expressions;
        u.expressions[i * 4] = e.mouthOpen, u.expressions[i * 4 + 1] = e.eyebrowsRaised;
        u.expressions[i * 4 + 2] = e.smile, u.expressions[i * 4 + 3] = e.blink;
    }
    if (u.count > 0) {
        for (int i = 0; i < Face::kLandmarkCount; ++i)
            put(u.landmarks, i, faces[0].landmarks[i]);
    }
    return u;
}

Point anchorPoint(const Face &f, LensAnchor anchor)
{
    switch (anchor) {
    case LensAnchor::LeftEye:
        return f.leftEye();
    case LensAnchor::RightEye:
        return f.rightEye();
    case LensAnchor::Brows:
        return f.browsCenter();
    case LensAnchor::Nose:
        return f.noseTip();
    case LensAnchor::Mouth:
        return f.mouthCenter();
    case LensAnchor::Forehead:
        return f.forehead();
    case LensAnchor::Chin:
        return f.chin();
    case LensAnchor::Eyes:
    case LensAnchor::Screen:
        break;
    }
    return f.eyesCenter();
}

} // namespace

struct SceneRenderer::Impl
{
    std::string folder;
    std::vector<EffectRuntime> effects;
    // Passes that read an input of the target's size use index 1 (texel
    // reads), the others index 0 (filtered reads). A copy to the same size
    // is a blit; the copy pass only scales.
    ShaderProgram copy, lut[2], composite[2];
    ShaderProgram sticker;
    RenderTarget full[2];
    Texture transparent; // stands in for images that are not (yet) there
    Texture everyone;    // the person mask when there is none: all person
    Texture segmentation;
    unsigned vao = 0;

    // The texture the next pass reads, and which full target holds it
    // (-1: the camera texture or a reduced target).
    Texture current;
    int currentTarget = -1;

    bool compile(ShaderProgram &program, const std::string &vertex, const std::string &fragment,
                 const std::string &name, std::string &error);
    bool loadEffect(EffectRuntime &runtime, std::string &error);
    void drawPass(EffectRuntime &e, const Texture &camera, const Scene &scene, const FaceUniforms &faces,
                  Size output);
    void bindPassInputs(EffectRuntime &e, ShaderProgram &program, const Texture &camera, const Scene &scene,
                        const FaceUniforms &faces, Size size);
    void setCommonUniforms(ShaderProgram &p, const Scene &scene, const EffectRuntime &e,
                           const FaceUniforms &faces, Size target);
    void ensureFullTarget(Size output);
    RenderTarget &freeTarget(Size output);
    void drawSticker(EffectRuntime &e, const Scene &scene, const std::vector<Face> &faces, Size camera,
                     Size output);
    void drawLandmarks(const std::vector<Face> &faces, Size camera, Size output);
};

bool SceneRenderer::Impl::compile(ShaderProgram &program, const std::string &vertex,
                                  const std::string &fragment, const std::string &name, std::string &error)
{
    std::string log;
    if (program.build(vertex, fragment, log))
        return true;
    error = name + ": shader does not compile:\n" + log;
    return false;
}

bool SceneRenderer::Impl::loadEffect(EffectRuntime &e, std::string &error)
{
    const LensEffectDefinition &def = *e.def;
    if (def.kind == LensEffectKind::Shader) {
        std::string source;
        const std::string path = folder + "/" + def.shaderFile;
        if (!FileUtils::readFile(path, source)) {
            error = path + ": file not readable";
            return false;
        }
        e.readsTouch =
            source.find("u_tap") != std::string::npos || source.find("u_touch") != std::string::npos;
        e.readsSegmentation = source.find("u_segmentation") != std::string::npos;
        e.program = std::make_unique<ShaderProgram>();
        if (!compile(*e.program, ShaderLibrary::fullScreenVertex(), ShaderLibrary::lensFragment(source), path,
                     error))
            return false;
        for (const auto &[name, ref] : def.textures)
            e.samplers[name].ref = ref;
    } else if (def.kind == LensEffectKind::Lut) {
        e.frames.push_back(ImageSlot{def.image, {}, false});
    } else {
        for (const auto &frame : def.frames)
            e.frames.push_back(ImageSlot{frame, {}, false});
    }
    // Local images load now so that a broken file fails the lens load.
    std::vector<ImageSlot *> slots;
    for (auto &slot : e.frames)
        slots.push_back(&slot);
    for (auto &entry : e.samplers)
        slots.push_back(&entry.second);
    for (ImageSlot *slot : slots) {
        if (slot->ref.rfind("asset:", 0) == 0)
            continue;
        auto image = ImageFile::read(folder + "/" + slot->ref, error);
        if (!image)
            return false;
        slot->texture = Texture::fromImage(*image);
    }
    if (def.kind == LensEffectKind::Lut && e.frames[0].texture.isValid()) {
        const Texture &t = e.frames[0].texture;
        const int side =
            static_cast<int>(std::lround(std::cbrt(static_cast<double>(t.width()) * t.height())));
        if (side * side * side != t.width() * t.height() || side < 2) {
            error = folder + "/" + def.image + ": a look-up image needs N*N*N pixels (for example 512x512)";
            return false;
        }
    }
    return true;
}

void SceneRenderer::Impl::setCommonUniforms(ShaderProgram &p, const Scene &scene, const EffectRuntime &e,
                                            const FaceUniforms &faces, Size target)
{
    const Scene::TouchState &touch = scene.touchState();
    p.setVec2("u_resolution", static_cast<float>(target.width), static_cast<float>(target.height));
    p.setFloat("u_time", static_cast<float>(scene.time()));
    p.setFloat("u_effectTime", static_cast<float>(scene.time() - scene.effectState(e.def->id).startTime));
    p.setVec2("u_tap", touch.tap.x, touch.tap.y);
    p.setFloat("u_tapCount", static_cast<float>(touch.tapCount));
    p.setFloat("u_tapTime", static_cast<float>(scene.time() - touch.tapTime));
    p.setVec2("u_touch", touch.touch.x, touch.touch.y);
    p.setFloat("u_touchDown", touch.touchDown ? 1.0f : 0.0f);
    p.setInt("u_faceCount", faces.count);
    p.setFloats("u_faceRect[0]", faces.rect, 4, 4);
    p.setFloats("u_leftEye[0]", faces.leftEye, 2, 4);
    p.setFloats("u_rightEye[0]", faces.rightEye, 2, 4);
    p.setFloats("u_nose[0]", faces.nose, 2, 4);
    p.setFloats("u_mouth[0]", faces.mouth, 2, 4);
    p.setFloats("u_faceRoll[0]", faces.roll, 1, 4);
    p.setFloats("u_expressions[0]", faces.expressions, 4, 4);
    p.setFloats("u_landmarks[0]", faces.landmarks, 2, Face::kLandmarkCount);
    for (const auto &[name, values] : e.def->uniforms)
        p.setFloats(name, values.data(), static_cast<int>(values.size()));
}

RenderTarget &SceneRenderer::Impl::freeTarget(Size output)
{
    const int index = currentTarget == 0 ? 1 : 0;
    if (!full[index].ensure(output.width, output.height))
        throw std::runtime_error("render target of " + std::to_string(output.width) + "x" +
                                 std::to_string(output.height) + " is not complete");
    currentTarget = index;
    return full[index];
}

void SceneRenderer::Impl::ensureFullTarget(Size output)
{
    if (currentTarget >= 0)
        return;
    Texture source = current;
    RenderTarget &target = freeTarget(output);
    if (source.size() == output) {
        target.copyFrom(source);
        current = target.texture();
        return;
    }
    target.bind();
    ShaderProgram &program = copy;
    program.use();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, source.id());
    program.setInt("u_input", 0);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    current = target.texture();
}

void SceneRenderer::Impl::bindPassInputs(EffectRuntime &e, ShaderProgram &program, const Texture &camera,
                                         const Scene &scene, const FaceUniforms &faces, Size size)
{
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, current.id());
    program.setInt("u_input", 0);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, camera.id());
    program.setInt("u_camera", 1);
    if (e.def->kind == LensEffectKind::Lut) {
        const Texture *table = e.frames[0].resolve(scene, folder);
        glActiveTexture(GL_TEXTURE2);
        glBindTexture(GL_TEXTURE_2D, table ? table->id() : 0);
        program.setInt("u_lut", 2);
        program.setInt("u_lutSide", table ? static_cast<int>(std::lround(std::cbrt(
                                                static_cast<double>(table->width()) * table->height())))
                                          : 2);
        program.setFloat("u_intensity", table ? e.def->intensity : 0.0f);
    } else {
        setCommonUniforms(program, scene, e, faces, size);
        int unit = 2;
        for (auto &[name, slot] : e.samplers) {
            const Texture *t = slot.resolve(scene, folder);
            glActiveTexture(GL_TEXTURE0 + unit);
            glBindTexture(GL_TEXTURE_2D, t ? t->id() : transparent.id());
            program.setInt(name, unit++);
        }
        if (e.readsSegmentation) {
            glActiveTexture(GL_TEXTURE0 + unit);
            glBindTexture(GL_TEXTURE_2D, segmentation.isValid() ? segmentation.id() : everyone.id());
            program.setInt("u_segmentation", unit++);
        }
    }
    glActiveTexture(GL_TEXTURE0);
}

void SceneRenderer::Impl::drawPass(EffectRuntime &e, const Texture &camera, const Scene &scene,
                                   const FaceUniforms &faces, Size output)
{
    ShaderProgram &program =
        e.def->kind == LensEffectKind::Lut ? lut[current.size() == output ? 1 : 0] : *e.program;
    const bool shader = e.def->kind == LensEffectKind::Shader;
    const float scale = shader ? e.def->scale : 1.0f;
    const bool overlay = shader && e.def->overlay;
    // Lens shaders may read their input texel by texel; give them the
    // camera picture at the output size when the two differ.
    if (shader && currentTarget < 0 && current.id() == camera.id() && camera.size() != output)
        ensureFullTarget(output);
    RenderTarget *target = nullptr;
    Size size = output;
    if (scale < 1.0f || overlay) {
        size = {std::max(1, static_cast<int>(output.width * scale)),
                std::max(1, static_cast<int>(output.height * scale))};
        if (!e.reduced)
            e.reduced = std::make_unique<RenderTarget>();
        if (!e.reduced->ensure(size.width, size.height))
            throw std::runtime_error("reduced render target is not complete");
        target = e.reduced.get();
    } else {
        target = &freeTarget(output);
    }
    target->bind();
    program.use();
    bindPassInputs(e, program, camera, scene, faces, size);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    if (!overlay) {
        if (target == e.reduced.get())
            currentTarget = -1;
        current = target->texture();
        return;
    }
    // Lay what the pass drew over the picture so far, in one full pass.
    const Texture base = current;
    RenderTarget &out = freeTarget(output);
    out.bind();
    ShaderProgram &blend = composite[base.size() == output ? 1 : 0];
    blend.use();
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, e.reduced->texture().id());
    blend.setInt("u_overlay", 1);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, base.id());
    blend.setInt("u_input", 0);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    current = out.texture();
}

void SceneRenderer::Impl::drawSticker(EffectRuntime &e, const Scene &scene, const std::vector<Face> &faces,
                                      Size camera, Size output)
{
    const LensEffectDefinition &def = *e.def;
    const double elapsed = scene.time() - scene.effectState(def.id).startTime;
    const int count = static_cast<int>(e.frames.size());
    int index = static_cast<int>(std::floor(std::max(0.0, elapsed) * def.fps));
    index = def.loop ? index % count : std::min(index, count - 1);
    const Texture *image = e.frames[index].resolve(scene, folder);
    if (!image || (def.anchor != LensAnchor::Screen && faces.empty()))
        return;
    ensureFullTarget(output);
    full[currentTarget].bind();
    glEnable(GL_BLEND);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    sticker.use();
    glBindTexture(GL_TEXTURE_2D, image->id());
    sticker.setInt("u_image", 0);
    sticker.setFloat("u_opacity", 1.0f);
    sticker.setVec2("u_resolution", static_cast<float>(output.width), static_cast<float>(output.height));
    const float aspect = static_cast<float>(image->height()) / static_cast<float>(image->width());
    const float sx = static_cast<float>(output.width) / camera.width;
    const float sy = static_cast<float>(output.height) / camera.height;
    auto draw = [&](float cx, float cy, float width, float angle) {
        sticker.setVec2("u_center", cx, cy);
        sticker.setVec2("u_halfSize", width * 0.5f, width * aspect * 0.5f);
        sticker.setFloat("u_angle", angle);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    };
    if (def.anchor == LensAnchor::Screen) {
        draw(def.position[0] * output.width, def.position[1] * output.height, def.size * output.width, 0.0f);
    } else {
        for (const Face &f : faces) {
            const Point at = anchorPoint(f, def.anchor);
            const float width = def.size * f.width();
            const float roll = f.roll();
            const float ox = def.offset[0] * f.width(), oy = def.offset[1] * f.width();
            const float c = def.followRoll ? std::cos(roll) : 1.0f,
                        s = def.followRoll ? std::sin(roll) : 0.0f;
            draw((at.x + c * ox - s * oy) * sx, (at.y + s * ox + c * oy) * sy, width * sx,
                 def.followRoll ? roll : 0.0f);
        }
    }
    glDisable(GL_BLEND);
}

void SceneRenderer::Impl::drawLandmarks(const std::vector<Face> &faces, Size camera, Size output)
{
    ensureFullTarget(output);
    full[currentTarget].bind();
    glEnable(GL_SCISSOR_TEST);
    glClearColor(0.1f, 1.0f, 0.3f, 1.0f);
    for (const Face &f : faces) {
        for (const Point &p : f.landmarks) {
            const int x = static_cast<int>(p.x * output.width / camera.width);
            const int y = static_cast<int>(p.y * output.height / camera.height);
            glScissor(x - 1, y - 1, 3, 3);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    glDisable(GL_SCISSOR_TEST);
}

SceneRenderer::SceneRenderer() : d(std::make_unique<Impl>()) {}

SceneRenderer::~SceneRenderer()
{
    if (d->vao)
        glDeleteVertexArrays(1, &d->vao);
}

bool SceneRenderer::load(const Scene &scene, std::string &error)
{
    const LensManifest &manifest = scene.manifest();
    d->folder = manifest.folder;
    glGenVertexArrays(1, &d->vao);
    d->transparent = Texture::fromImage(ImageBase(1, 1, ColorSpace::RGBA));
    ImageBase white(1, 1, ColorSpace::Gray);
    white.data()[0] = 255;
    d->everyone = Texture::fromImage(white);
    const std::string &vertex = ShaderLibrary::fullScreenVertex();
    if (!d->compile(d->sticker, ShaderLibrary::stickerVertex(), ShaderLibrary::stickerFragment(), "sticker",
                    error))
        return false;
    if (!d->compile(d->copy, vertex, ShaderLibrary::copyFragment(), "copy", error))
        return false;
    for (int direct = 0; direct < 2; ++direct) {
        auto variant = [direct](const std::string &source) {
            return direct ? ShaderLibrary::directRead(source) : source;
        };
        if (!d->compile(d->lut[direct], vertex, variant(ShaderLibrary::lutFragment()), "lut", error) ||
            !d->compile(d->composite[direct], vertex, variant(ShaderLibrary::compositeFragment()),
                        "composite", error))
            return false;
    }
    d->effects.resize(manifest.effects.size());
    for (size_t i = 0; i < manifest.effects.size(); ++i) {
        d->effects[i].def = &manifest.effects[i];
        if (!d->loadEffect(d->effects[i], error))
            return false;
    }
    return true;
}

bool SceneRenderer::usesTouch() const
{
    for (const auto &e : d->effects) {
        if (e.readsTouch)
            return true;
    }
    return false;
}

bool SceneRenderer::usesSegmentation() const
{
    for (const auto &e : d->effects) {
        if (e.readsSegmentation)
            return true;
    }
    return false;
}

void SceneRenderer::setSegmentation(const Texture &mask)
{
    d->segmentation = mask;
}

Texture SceneRenderer::render(const Texture &camera, const Scene &scene, const std::vector<Face> &faces,
                              Size output, bool drawLandmarks)
{
    glBindVertexArray(d->vao);
    glDisable(GL_BLEND);
    d->current = camera;
    d->currentTarget = -1;
    const FaceUniforms uniforms = faceUniforms(faces, camera.size());
    for (auto &e : d->effects) {
        if (!scene.effectState(e.def->id).visible)
            continue;
        if (e.def->kind == LensEffectKind::Sticker)
            d->drawSticker(e, scene, faces, camera.size(), output);
        else
            d->drawPass(e, camera, scene, uniforms, output);
    }
    if (drawLandmarks && !faces.empty())
        d->drawLandmarks(faces, camera.size(), output);
    if (d->current.size() != output)
        d->ensureFullTarget(output);
    const GLenum status = glGetError();
    if (status != GL_NO_ERROR)
        throw std::runtime_error("OpenGL error " + std::to_string(status) + " while rendering lens " +
                                 scene.manifest().id);
    return d->current;
}

} // namespace Orb::Mosaica
