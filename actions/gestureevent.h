#pragma once

#include "actiontypes.h"

#include <QMetaType>
#include <QPointF>

namespace VCam {

// A touch or tap on the preview, in frame coordinates.
struct GestureEvent
{
    GestureType type = GestureType::None;
    QPointF location;
};

QDebug operator<<(QDebug debug, const GestureEvent &event);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::GestureEvent)
