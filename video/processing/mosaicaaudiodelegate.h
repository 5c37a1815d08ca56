#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// Lenses may use sound; a virtual camera carries no sound, so sounds are
// accepted and not played.
class MosaicaAudioDelegate : public Orb::MosaicaAudioDelegate
{
public:
    bool isAudioSupported() override { return true; }
    void playSound(const std::string &) override {}
    void stopSounds() override {}
};

} // namespace VCam
