#include "cameralist.h"

#include <QCameraInfo>

namespace VCam {

namespace {
const char FilePrefix[] = "file:";
}

QString CameraList::demoCameraName()
{
    return QStringLiteral("Glint Demo Camera");
}

QString CameraList::fileCameraName(const QString &path)
{
    return QLatin1String(FilePrefix) + path;
}

CameraList::Kind CameraList::kindOf(const std::string &name)
{
    if (name.rfind(FilePrefix, 0) == 0)
        return Kind::File;
    if (name == demoCameraName().toStdString())
        return Kind::Demo;
    return Kind::Webcam;
}

std::string CameraList::filePathOf(const std::string &name)
{
    return kindOf(name) == Kind::File ? name.substr(sizeof(FilePrefix) - 1) : std::string();
}

QStringList CameraList::availableCameras()
{
    QStringList names;
    const auto cameras = QCameraInfo::availableCameras();
    for (const QCameraInfo &camera : cameras)
        names << camera.description();
    return withDemoFallback(names);
}

QStringList CameraList::withDemoFallback(const QStringList &systemCameras)
{
    return systemCameras.isEmpty() ? QStringList{demoCameraName()} : systemCameras;
}

} // namespace VCam
