#pragma once

#include <QString>

namespace VCam {

// The word that names this operating system to the backend ("platform"
// query key of the update requests).
QString platformWord();

} // namespace VCam
