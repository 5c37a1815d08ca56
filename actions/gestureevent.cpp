#include "gestureevent.h"

namespace VCam {

QDebug operator<<(QDebug debug, const GestureEvent &event)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "GestureEvent(" << event.type << ", " << event.location << ")";
    return debug;
}

} // namespace VCam
