#pragma once

#include <string>

namespace Orb {

// Names a lens to load: its identifier and the folder holding its manifest.
struct ComplexEffectDescriptor
{
    ComplexEffectDescriptor() = default;
    ComplexEffectDescriptor(std::string lensId, std::string lensPath)
        : lensId(std::move(lensId)), lensPath(std::move(lensPath))
    {}

    std::string lensId;
    std::string lensPath;
};

} // namespace Orb
