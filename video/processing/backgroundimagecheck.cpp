#include "backgroundimagecheck.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QImageReader>

namespace VCam {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("BackgroundImageCheck", text);
}

} // namespace

QString BackgroundImageCheck::problemWith(const QString &path)
{
    if (path.isEmpty())
        return tr("No background image was chosen.");
    const QFileInfo info(path);
    const QString name = info.fileName().isEmpty() ? path : info.fileName();
    if (!info.exists())
        return tr("The background image \"%1\" does not exist.").arg(name);
    if (info.isDir())
        return tr("\"%1\" is a folder, not an image.").arg(name);
    // Not a regular file (a pipe or a device): opening it could block.
    if (!info.isFile())
        return tr("\"%1\" is not an image file.").arg(name);
    if (!info.isReadable())
        return tr("The background image \"%1\" can't be read.").arg(name);
    if (info.size() > kMaxFileBytes)
        return tr("The background image \"%1\" is too large (%2 MB; at most %3 MB).")
            .arg(name)
            .arg(info.size() / (1024 * 1024))
            .arg(kMaxFileBytes / (1024 * 1024));

    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    const QByteArray format = reader.format();
    if (format != "png" && format != "jpeg" && format != "jpg")
        return tr("\"%1\" is not a PNG or JPEG image.").arg(name);
    const QSize size = reader.size();
    if (!size.isValid() || size.isEmpty())
        return tr("The background image \"%1\" is damaged.").arg(name);
    if (size.width() > kMaxSide || size.height() > kMaxSide ||
        qint64(size.width()) * size.height() > kMaxPixels)
        return tr("The background image \"%1\" is too large (%2 x %3 pixels; at most 7680 x 4320).")
            .arg(name)
            .arg(size.width())
            .arg(size.height());
    return {};
}

} // namespace VCam
