#pragma once

#include <memory>

namespace Orb {

class ComplexEffect;
class MosaicaAudioDelegate;

// Holds the lens in use.
class EffectsManager
{
public:
    // The loaded lens, or null when none is in use (or the last load failed).
    std::shared_ptr<ComplexEffect> getComplexEffect() const { return m_effect; }
    void setComplexEffect(std::shared_ptr<ComplexEffect> effect) { m_effect = std::move(effect); }

    void setMosaicaAudioDelegate(std::weak_ptr<MosaicaAudioDelegate> delegate)
    {
        m_audio = std::move(delegate);
    }

private:
    std::shared_ptr<ComplexEffect> m_effect;
    std::weak_ptr<MosaicaAudioDelegate> m_audio;
};

} // namespace Orb
