#include "lenscommand.h"

namespace VCam {

QDebug operator<<(QDebug debug, const LensCommand &command)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "LensCommand(" << command.lensId << ", " << command.context;
    if (command.enabled)
        debug << ", enabled";
    if (!command.text.isEmpty())
        debug << ", " << command.text;
    if (!command.url.isEmpty())
        debug << ", " << command.url.toString();
    if (command.kind != 0)
        debug << ", kind " << command.kind;
    debug << ")";
    return debug;
}

} // namespace VCam
