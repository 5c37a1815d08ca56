#include "videofixture.h"

#include <QDir>
#include <QProcess>
#include <QtTest>

namespace VideoFixture {

QString make(const QString &dir, const QString &name, const Spec &spec)
{
    const QString path = QDir(dir).filePath(name);
    const QString source =
        QStringLiteral("color=blue:s=%1x%2:r=%3,drawbox=x=0:y=0:w=iw/4:h=ih/4:color=red:t=fill")
            .arg(spec.size.width())
            .arg(spec.size.height())
            .arg(spec.fps);
    QStringList args{"-hide_banner", "-loglevel", "error", "-y",        "-f",
                     "lavfi",        "-i",        source,  "-frames:v", QString::number(spec.frames),
                     "-c:v",         spec.codec};
    args << (spec.codec == QLatin1String("rawvideo") ? QStringList{"-pix_fmt", "yuyv422"}
                                                     : QStringList{"-q:v", "3"});
    if (!spec.rotate.isEmpty()) // Matroska keeps tags as written
        args << QStringList{"-metadata:s:v:0", "ROTATE=" + spec.rotate};
    args << path;

    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", args);
    const bool ok = ffmpeg.waitForFinished(60000) && ffmpeg.exitStatus() == QProcess::NormalExit &&
                    ffmpeg.exitCode() == 0;
    if (!ok) {
        qWarning() << "ffmpeg failed:" << ffmpeg.readAllStandardError();
        return {};
    }
    return path;
}

// The pixel 40 pixels in from a corner.
static QRgb cornerPixel(const QImage &image, Corner corner)
{
    const bool right = corner == Corner::TopRight || corner == Corner::BottomRight;
    const bool bottom = corner == Corner::BottomLeft || corner == Corner::BottomRight;
    return image.pixel(right ? image.width() - 40 : 40, bottom ? image.height() - 40 : 40);
}

bool markedCorner(const QImage &image, Corner *corner)
{
    int marked = 0;
    for (Corner c : {Corner::TopLeft, Corner::TopRight, Corner::BottomLeft, Corner::BottomRight}) {
        const QColor pixel(cornerPixel(image, c));
        const bool red = pixel.red() > 180 && pixel.green() < 80 && pixel.blue() < 80;
        if (red) {
            *corner = c;
            ++marked;
        } else if (pixel.blue() < 180 || pixel.red() > 80 || pixel.green() > 80) {
            return false; // neither the red mark nor the blue ground
        }
    }
    return marked == 1;
}

} // namespace VideoFixture
