#include "backgroundsetting.h"

namespace VCam {

QDebug operator<<(QDebug debug, const BackgroundSetting &setting)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "BackgroundSetting(" << setting.mode;
    if (setting.mode == BackgroundMode::Blur)
        debug << ", " << setting.blurStrength;
    if (setting.mode == BackgroundMode::Image)
        debug << ", " << setting.imagePath;
    debug << ")";
    return debug;
}

} // namespace VCam
