#include "externalevent.h"

namespace VCam {

QDebug operator<<(QDebug debug, const ExternalEvent &event)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "ExternalEvent(" << event.type << ", " << event.data << ")";
    return debug;
}

} // namespace VCam
