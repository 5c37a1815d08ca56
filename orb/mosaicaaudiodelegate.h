#pragma once

#include <string>

namespace Orb {

// Sound output for lenses.
class MosaicaAudioDelegate
{
public:
    virtual ~MosaicaAudioDelegate() = default;
    virtual bool isAudioSupported() = 0;
    virtual void playSound(const std::string &path) = 0;
    virtual void stopSounds() = 0;
};

} // namespace Orb
