#include "globalshortcut.h"

namespace VCam {

QDebug operator<<(QDebug debug, const GlobalShortcut &shortcut)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "GlobalShortcut(" << shortcut.role << ", " << shortcut.sequence.toString() << ")";
    return debug;
}

} // namespace VCam
