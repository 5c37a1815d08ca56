#pragma once

#include <QVariant>
#include <QtGlobal>

namespace Bureau {

// One state change travelling through the dispatcher: what happened (a value
// of VCam::ActionType) and its argument. Held by shared pointer once queued.
struct Action
{
    Action() = default;
    Action(qint32 type, QVariant payload = {}) : type(type), payload(std::move(payload)) {}

    qint32 type = 0;
    QVariant payload;
    qint32 flags = 0;
};

} // namespace Bureau
