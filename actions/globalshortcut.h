#pragma once

#include "actiontypes.h"

#include <QKeySequence>
#include <QMetaType>

namespace VCam {

struct GlobalShortcut
{
    ShortcutRole role = ShortcutRole::Crash;
    QKeySequence sequence;
};

QDebug operator<<(QDebug debug, const GlobalShortcut &shortcut);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::GlobalShortcut)
