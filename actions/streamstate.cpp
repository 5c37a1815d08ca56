#include "streamstate.h"

namespace VCam {

QDebug operator<<(QDebug debug, const StreamState &state)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "StreamState(live=" << state.live << ", startedAt=" << state.startedAt
                    << ", viewers=" << state.viewerCount << ")";
    return debug;
}

} // namespace VCam
