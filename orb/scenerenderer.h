#pragma once

#include "face.h"
#include "size.h"
#include "texture.h"

#include <memory>
#include <string>
#include <vector>

namespace Orb::Mosaica {

class Scene;

// Draws a scene's visible effects over a camera texture: shader and look-up
// passes (full or reduced resolution, ping-ponging between render targets)
// and stickers blended on top. Owns every GL resource of one lens.
class SceneRenderer
{
public:
    SceneRenderer();
    ~SceneRenderer();

    // Compiles the lens's shaders and loads its images. Errors name the file
    // and carry the shader compiler's log.
    bool load(const Scene &scene, std::string &error);
    // Whether a lens shader reads tap or touch input.
    bool usesTouch() const;
    // Whether a lens shader reads the person mask (u_segmentation).
    bool usesSegmentation() const;
    // The person mask the next frames' shaders read (red: 1 person, 0
    // background). Without one they read "person everywhere".
    void setSegmentation(const Texture &mask);

    // Renders one frame. Faces are in camera texture pixels. Throws
    // std::runtime_error when OpenGL reports a failure.
    Texture render(const Texture &camera, const Scene &scene, const std::vector<Face> &faces, Size output,
                   bool drawLandmarks);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace Orb::Mosaica
