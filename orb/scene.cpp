#include "scene.h"

#include "assetsystem.h"
#include "externaleventsystem.h"
#include "hostdelegates.h"

#include <algorithm>

namespace Orb::Mosaica {

Scene::Scene(LensManifest manifest)
    : m_manifest(std::move(manifest)),
      m_events(std::make_shared<Infrastructure::ExternalEventSystem>(m_manifest.externalTriggers)),
      m_assets(std::make_shared<AssetSystem>(m_manifest.remoteAssets))
{
    for (const auto &effect : m_manifest.effects)
        m_effects[effect.id].visible = effect.visible;
    m_events->setHandler(
        [this](const std::string &name, const std::string &) { fire(LensTrigger::Event, name); });
}

Scene::~Scene()
{
    m_events->setHandler({});
}

const std::vector<std::string> &Scene::getSupportedExternalTriggers() const
{
    return m_manifest.externalTriggers;
}

const Scene::EffectState &Scene::effectState(const std::string &effectId) const
{
    static const EffectState hidden{false, 0.0};
    auto it = m_effects.find(effectId);
    return it == m_effects.end() ? hidden : it->second;
}

void Scene::update(const std::vector<Face> &faces, double time)
{
    m_time = time;
    if (!m_started) {
        m_started = true;
        if (!m_manifest.hint.empty()) {
            showHint(m_manifest.hint);
            m_hideStartHintAt = time + kStartHintSeconds;
        }
        fire(LensTrigger::Start);
    }
    if (m_hideStartHintAt >= 0.0 && time >= m_hideStartHintAt) {
        m_hideStartHintAt = -1.0;
        hideHint();
    }
    const bool hasFaces = !faces.empty();
    if (hasFaces != m_hadFaces) {
        m_hadFaces = hasFaces;
        fire(hasFaces ? LensTrigger::FaceFound : LensTrigger::FaceLost);
    }
    detectExpressionEdges(faces);
}

void Scene::detectExpressionEdges(const std::vector<Face> &faces)
{
    std::map<int, FaceExpressions> current;
    for (const auto &face : faces) {
        const FaceExpressions &now = face.expressions;
        const FaceExpressions before =
            m_previousExpressions.count(face.id) ? m_previousExpressions[face.id] : FaceExpressions();
        if (now.isMouthOpen && !before.isMouthOpen)
            fire(LensTrigger::MouthOpened);
        if (now.areEyebrowsRaised && !before.areEyebrowsRaised)
            fire(LensTrigger::EyebrowsRaised);
        if (now.isSmiling && !before.isSmiling)
            fire(LensTrigger::Smile);
        if (now.isBlinking && !before.isBlinking)
            fire(LensTrigger::Blink);
        current[face.id] = now;
    }
    m_previousExpressions.swap(current);
}

bool Scene::handleTouch(const TouchEvent &event)
{
    const Point at{event.x, event.y};
    switch (event.type) {
    case TouchEvent::Type::Tap: {
        m_touch.tap = at;
        ++m_touch.tapCount;
        m_touch.tapTime = m_time;
        const bool hasTapBehavior =
            std::any_of(m_manifest.behaviors.begin(), m_manifest.behaviors.end(),
                        [](const LensBehaviorDefinition &b) { return b.trigger == LensTrigger::Tap; });
        fire(LensTrigger::Tap);
        return hasTapBehavior || m_touchUsedByShaders;
    }
    case TouchEvent::Type::TouchBegin:
    case TouchEvent::Type::TouchChange:
        m_touch.touch = at;
        m_touch.touchDown = true;
        return m_touchUsedByShaders;
    case TouchEvent::Type::TouchEnd:
        m_touch.touch = at;
        m_touch.touchDown = false;
        return m_touchUsedByShaders;
    case TouchEvent::Type::None:
        break;
    }
    return false;
}

void Scene::fire(LensTrigger trigger, const std::string &eventName)
{
    for (const auto &behavior : m_manifest.behaviors) {
        if (behavior.trigger == trigger && (trigger != LensTrigger::Event || behavior.eventName == eventName))
            apply(behavior);
    }
}

void Scene::apply(const LensBehaviorDefinition &behavior)
{
    if (behavior.action == LensAction::ShowHint) {
        m_hideStartHintAt = -1.0;
        showHint(behavior.hint);
        return;
    }
    if (behavior.action == LensAction::HideHint) {
        m_hideStartHintAt = -1.0;
        hideHint();
        return;
    }
    EffectState &state = m_effects[behavior.effect];
    const bool wasVisible = state.visible;
    switch (behavior.action) {
    case LensAction::Show:
        state.visible = true;
        break;
    case LensAction::Hide:
        state.visible = false;
        break;
    case LensAction::Toggle:
        state.visible = !state.visible;
        break;
    case LensAction::Restart:
        state.startTime = m_time;
        break;
    default:
        break;
    }
    if (state.visible && !wasVisible)
        state.startTime = m_time;
}

void Scene::showHint(const std::string &id)
{
    m_hintShown = true;
    if (auto hints = m_hints.lock())
        hints->showHint(id);
}

void Scene::hideHint()
{
    m_hintShown = false;
    if (auto hints = m_hints.lock())
        hints->hideHint();
}

void Scene::stop()
{
    m_hideStartHintAt = -1.0;
    if (m_hintShown)
        hideHint();
}

} // namespace Orb::Mosaica
