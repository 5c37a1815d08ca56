#pragma once

#include <QString>
#include <QStringList>
#include <string>

namespace VCam {

// Names of the cameras the user can choose. A system camera goes by its
// description, a video file by "file:" followed by its path, and the demo
// camera by a fixed display name.
class CameraList
{
public:
    enum class Kind { Webcam, File, Demo };

    static QString demoCameraName();
    static QString fileCameraName(const QString &path);
    static Kind kindOf(const std::string &name);
    // The path inside a file camera name; empty for other names.
    static std::string filePathOf(const std::string &name);

    // The system cameras, or the demo camera when none is connected.
    static QStringList availableCameras();
    static QStringList withDemoFallback(const QStringList &systemCameras);
};

} // namespace VCam
