#include "qquicknonblockingpresscatcher.h"

namespace VCam {

QQuickNonBlockingPressCatcher::QQuickNonBlockingPressCatcher(QQuickItem *parent) : QQuickItem(parent)
{
    setAcceptedMouseButtons(Qt::AllButtons);
}

void QQuickNonBlockingPressCatcher::mousePressEvent(QMouseEvent *event)
{
    emit pressed();
    // The base handler leaves the event unaccepted, so it goes on below.
    QQuickItem::mousePressEvent(event);
}

} // namespace VCam
