#pragma once

#include "lensid.h"

#include <QDebug>
#include <QKeySequence>
#include <QMetaType>

namespace VCam {

struct LensShortcut
{
    LensId lensId = kInvalidLensId;
    QKeySequence sequence;
};

QDebug operator<<(QDebug debug, const LensShortcut &shortcut);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::LensShortcut)
