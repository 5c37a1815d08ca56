#pragma once

#include <string>

namespace Orb {

// The GLSL sources built into the renderer, and the prelude put before every
// lens fragment shader (its uniforms are the lens author's vocabulary).
class ShaderLibrary
{
public:
    static const std::string &fullScreenVertex();
    static const std::string &stickerVertex();
    static const std::string &lensPrelude();
    static const std::string &copyFragment();
    static const std::string &stickerFragment();
    static const std::string &lutFragment();
    static const std::string &compositeFragment();
    // The prelude followed by the author's source, with line numbers of
    // compile errors counted in the author's file.
    static std::string lensFragment(const std::string &authorSource);
    // The copy, look-up and composite sources read their input through a
    // linear filter; this variant reads it texel by texel instead, for
    // inputs of the target's size.
    static std::string directRead(const std::string &source);
};

} // namespace Orb
