#pragma once

#include <QByteArray>
#include <QDebug>
#include <QMetaType>

namespace VCam {

// An event for the current lens from outside the application: a type name
// the lens reacts to ("trigger1", a bits or subscription event) and its data.
struct ExternalEvent
{
    QByteArray type;
    QByteArray data;
};

QDebug operator<<(QDebug debug, const ExternalEvent &event);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::ExternalEvent)
