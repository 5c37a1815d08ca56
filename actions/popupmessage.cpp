#include "popupmessage.h"

namespace VCam {

QDebug operator<<(QDebug debug, const PopupMessage &message)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "PopupMessage(" << message.type << ", " << message.text << ")";
    return debug;
}

} // namespace VCam
