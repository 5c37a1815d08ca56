#include "webcamstreamgrabber.h"

#include "cameralist.h"
#include "framestreamfactory.h"

namespace VCam {

WebcamStreamGrabber::WebcamStreamGrabber(QObject *parent)
    : BaseStreamGrabber(FrameStreamFactory::create, parent)
{}

void WebcamStreamGrabber::setDevice(const QString &name)
{
    const std::string device = name.toStdString();
    const std::string current = stream()->deviceName();
    if (device == current)
        return;
    const State before = state();
    if (CameraList::kindOf(device) != CameraList::kindOf(current))
        replaceStream(device);
    else
        stream()->setDeviceName(device);
    if (state() == PlayState)
        openStream();
    if (state() != before)
        emit streamStateChanged(state());
}

} // namespace VCam
