#pragma once

#include <QImage>
#include <QLoggingCategory>

namespace VCam {

class IVirtualCamService;

Q_DECLARE_LOGGING_CATEGORY(lcVirtualCam)

// The processing side of the virtual camera: starting the output and
// handing a frame over in the camera's format.
class VirtualCamOutputHelper
{
public:
    // Forces 1280x720, installs the camera if it is missing, then starts it.
    // Returns whether the output runs.
    static bool startOutput(IVirtualCamService &service);
    // The frame as the camera takes it: 1280x720 (aspect ignored), RGB888.
    static QImage outputFrame(const QImage &frame);
    // Writes the frame; the pixels are lent to the service, not copied.
    static bool writeFrame(IVirtualCamService &service, const QImage &frame);
};

} // namespace VCam
