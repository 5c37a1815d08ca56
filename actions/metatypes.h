#pragma once

namespace VCam {

// Registers the payload and enumeration types with the meta-type system
// under their names, with debug printing for the log. Safe to call again.
void registerMetaTypes();

} // namespace VCam
