#pragma once

#include <orb/hostdelegates.h>

namespace VCam {

// Lenses that want to draw their own code image get none: the program draws
// the code as an overlay itself when the user asks for it.
class GlintcodeDelegate : public Orb::GlintcodeDelegate
{
public:
    std::shared_ptr<Orb::ImageBase> getGlintcodeImage(const std::string &) override { return nullptr; }
};

} // namespace VCam
