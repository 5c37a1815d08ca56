#pragma once

#include <QString>

namespace VCam {

// A lens's unlockable id as the backend gives it.
using LensId = QString;

inline const LensId kInvalidLensId = QStringLiteral("-1");

} // namespace VCam
