#pragma once

#include <memory>

namespace Orb {

namespace Mosaica {
class Scene;
class SceneRenderer;
} // namespace Mosaica

// A loaded lens: its scene (state and behaviours) and the renderer holding
// its GL resources.
class ComplexEffect
{
public:
    ComplexEffect(std::shared_ptr<Mosaica::Scene> scene, std::unique_ptr<Mosaica::SceneRenderer> renderer);
    ~ComplexEffect();

    std::shared_ptr<Mosaica::Scene> getScene() const { return m_scene; }
    Mosaica::SceneRenderer &renderer() { return *m_renderer; }

    // Seconds of the frame clock at which the lens showed its first frame;
    // negative until then.
    double startTime = -1.0;

private:
    std::shared_ptr<Mosaica::Scene> m_scene;
    std::unique_ptr<Mosaica::SceneRenderer> m_renderer;
};

} // namespace Orb
