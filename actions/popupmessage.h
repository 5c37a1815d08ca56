#pragma once

#include "actiontypes.h"

#include <QMetaType>
#include <QString>

namespace VCam {

// A message for the user, shown as a pop-up of its kind.
struct PopupMessage
{
    QString text;
    MessageType type = MessageType::Info;
};

QDebug operator<<(QDebug debug, const PopupMessage &message);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::PopupMessage)
