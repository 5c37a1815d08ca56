#include "actiontypes.h"

#include <QMetaEnum>

namespace VCam {

QDebug operator<<(QDebug debug, GestureType type)
{
    QDebugStateSaver saver(debug);
    const char *key = QMetaEnum::fromType<GestureType>().valueToKey(static_cast<int>(type));
    debug.noquote().nospace() << "GestureType::" << (key ? key : "None");
    return debug;
}

QByteArray actionTypeKey(qint32 type)
{
    return QByteArray(QMetaEnum::fromType<ActionType>().valueToKey(type));
}

} // namespace VCam
