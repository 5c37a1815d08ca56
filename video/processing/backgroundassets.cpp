#include "backgroundassets.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace VCam {

namespace {

const char *const kModelFile = "selfie_segmentation.onnx";
// Relative to the program's folder: the build tree first, then an installation.
const char *const kDataFolders[] = {"../data", "../share/glint-camera"};

QString programDir()
{
    return QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QDir::currentPath();
}

} // namespace

QString BackgroundAssets::segmentationModelPath()
{
    const QString overridden = qEnvironmentVariable("GLINT_SEGMENTATION_MODEL");
    if (!overridden.isEmpty())
        return overridden;
    const QDir dir(programDir());
    QString candidate;
    for (const char *folder : kDataFolders) {
        candidate = QDir::cleanPath(dir.filePath(QStringLiteral("%1/models/%2").arg(folder, kModelFile)));
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return candidate;
}

QString BackgroundAssets::imageFolder()
{
    const QString overridden = qEnvironmentVariable("GLINT_BACKGROUNDS");
    if (!overridden.isEmpty())
        return QFileInfo(overridden).isDir() ? overridden : QString();
    const QDir dir(programDir());
    for (const char *folder : kDataFolders) {
        const QString candidate = QDir::cleanPath(dir.filePath(QStringLiteral("%1/backgrounds").arg(folder)));
        if (QFileInfo(candidate).isDir())
            return candidate;
    }
    return {};
}

QStringList BackgroundAssets::bundledImages()
{
    const QString folder = imageFolder();
    if (folder.isEmpty())
        return {};
    QStringList images;
    const QFileInfoList entries =
        QDir(folder).entryInfoList({"*.png", "*.jpg", "*.jpeg"}, QDir::Files | QDir::Readable, QDir::Name);
    for (const QFileInfo &entry : entries)
        images << entry.absoluteFilePath();
    return images;
}

} // namespace VCam
