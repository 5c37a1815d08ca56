#include "demoframestream.h"

#include "cameralist.h"
#include "framesourcelogging.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace VCam {

DemoFrameStream::DemoFrameStream()
{
    setDeviceName(CameraList::demoCameraName().toStdString());
}

QString DemoFrameStream::clipFileName()
{
    return QStringLiteral("glint-demo.mp4");
}

QString DemoFrameStream::clipPath()
{
    const QString fromEnvironment = qEnvironmentVariable("GLINT_DEMO_CLIP");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    if (!QCoreApplication::instance())
        return {};
    const QDir dir(QCoreApplication::applicationDirPath());
    const QStringList candidates{clipFileName(), "data/" + clipFileName(), "../data/" + clipFileName(),
                                 "../share/glint-camera/" + clipFileName()};
    for (const QString &candidate : candidates) {
        const QFileInfo info(dir.filePath(candidate));
        if (info.isFile())
            return info.absoluteFilePath();
    }
    return {};
}

std::string DemoFrameStream::inputPath() const
{
    const QString path = clipPath();
    if (path.isEmpty())
        qCWarning(lcFrameSource) << "Demo clip not found; set GLINT_DEMO_CLIP to its path";
    return path.toStdString();
}

} // namespace VCam
