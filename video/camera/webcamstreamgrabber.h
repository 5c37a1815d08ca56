#pragma once

#include "basestreamgrabber.h"

#include <QString>

namespace VCam {

// The grabber of the camera the user chose: a webcam by its description, a
// video file ("file:<path>") or the demo camera.
class WebcamStreamGrabber : public BaseStreamGrabber
{
    Q_OBJECT
public:
    explicit WebcamStreamGrabber(QObject *parent = nullptr);

    // Switches to another camera; a playing stream is reopened at once.
    void setDevice(const QString &name);
};

} // namespace VCam
