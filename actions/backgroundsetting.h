#pragma once

#include "actiontypes.h"

#include <QMetaType>
#include <QString>

namespace VCam {

// The payload of SetBackgroundEffect: what to do behind the person in view.
// The blur strength matters only for Blur, the image only for Image.
struct BackgroundSetting
{
    BackgroundMode mode = BackgroundMode::Off;
    BlurStrength blurStrength = BlurStrength::Light;
    QString imagePath;

    bool operator==(const BackgroundSetting &other) const
    {
        return mode == other.mode && blurStrength == other.blurStrength && imagePath == other.imagePath;
    }
    bool operator!=(const BackgroundSetting &other) const { return !(*this == other); }
};

QDebug operator<<(QDebug debug, const BackgroundSetting &setting);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::BackgroundSetting)
