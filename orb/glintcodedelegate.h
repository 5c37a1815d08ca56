#pragma once

#include <memory>
#include <string>

namespace Orb {

class ImageBase;

// Supplies the scannable code image of a lens, for lenses that show it.
class GlintcodeDelegate
{
public:
    virtual ~GlintcodeDelegate() = default;
    // Null when the host has no code image for the lens.
    virtual std::shared_ptr<ImageBase> getGlintcodeImage(const std::string &lensId) = 0;
};

} // namespace Orb
