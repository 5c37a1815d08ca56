#include "ffmpegmutex.h"

namespace VCam {

QMutex &FFmpegMutex::instance()
{
    static QMutex mutex;
    return mutex;
}

} // namespace VCam
