#pragma once

#include "face.h"
#include "lensmanifest.h"
#include "touchevent.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Orb {
class HintsDelegate;
}

namespace Orb::Mosaica {

class AssetSystem;
namespace Infrastructure {
class ExternalEventSystem;
}

// The live state of a loaded lens: which effects show, when their animations
// started, touch input, and the behaviours that react to taps, events, faces
// and expressions. Rendering reads this state; it never changes it.
class Scene
{
public:
    struct EffectState
    {
        bool visible = true;
        double startTime = 0.0; // scene time the effect was last shown or restarted
    };

    struct TouchState
    {
        Point tap{-1.0f, -1.0f};
        int tapCount = 0;
        double tapTime = -1e6;
        Point touch{-1.0f, -1.0f};
        bool touchDown = false;
    };

    static constexpr double kStartHintSeconds = 3.0;

    explicit Scene(LensManifest manifest);
    ~Scene();

    const LensManifest &manifest() const { return m_manifest; }
    std::shared_ptr<Infrastructure::ExternalEventSystem> getExternalEventSystem() const { return m_events; }
    std::shared_ptr<AssetSystem> getAssetSystem() const { return m_assets; }
    const std::vector<std::string> &getSupportedExternalTriggers() const;

    void setHintsDelegate(std::weak_ptr<HintsDelegate> delegate) { m_hints = std::move(delegate); }
    // Whether taps change anything beyond behaviours (a shader reads them).
    void setTouchUsedByShaders(bool used) { m_touchUsedByShaders = used; }

    // Advances to `time` (seconds since the lens started) with this frame's
    // faces and runs the behaviours they trigger.
    void update(const std::vector<Face> &faces, double time);
    // Returns whether the lens reacts to the input.
    bool handleTouch(const TouchEvent &event);
    // The lens is being taken off: hides a hint it still shows.
    void stop();

    double time() const { return m_time; }
    const EffectState &effectState(const std::string &effectId) const;
    const TouchState &touchState() const { return m_touch; }

private:
    void fire(LensTrigger trigger, const std::string &eventName = {});
    void apply(const LensBehaviorDefinition &behavior);
    void detectExpressionEdges(const std::vector<Face> &faces);
    void showHint(const std::string &id);
    void hideHint();

    LensManifest m_manifest;
    std::shared_ptr<Infrastructure::ExternalEventSystem> m_events;
    std::shared_ptr<AssetSystem> m_assets;
    std::weak_ptr<HintsDelegate> m_hints;
    std::map<std::string, EffectState> m_effects;
    std::map<int, FaceExpressions> m_previousExpressions;
    TouchState m_touch;
    double m_time = 0.0;
    double m_hideStartHintAt = -1.0;
    bool m_started = false;
    bool m_hintShown = false;
    bool m_hadFaces = false;
    bool m_touchUsedByShaders = false;
};

} // namespace Orb::Mosaica
