#include "lensshortcut.h"

namespace VCam {

QDebug operator<<(QDebug debug, const LensShortcut &shortcut)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "LensShortcut(" << shortcut.lensId << ", " << shortcut.sequence.toString() << ")";
    return debug;
}

} // namespace VCam
