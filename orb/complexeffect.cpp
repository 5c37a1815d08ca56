#include "complexeffect.h"

#include "scene.h"
#include "scenerenderer.h"

namespace Orb {

ComplexEffect::ComplexEffect(std::shared_ptr<Mosaica::Scene> scene,
                             std::unique_ptr<Mosaica::SceneRenderer> renderer)
    : m_scene(std::move(scene)), m_renderer(std::move(renderer))
{}

ComplexEffect::~ComplexEffect() = default;

} // namespace Orb
