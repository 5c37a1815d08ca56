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
    if (spec.codec == QLatin1String("rawvideo"))
        args << "-pix_fmt"
             << "yuyv422";
    else
        args << "-q:v"
             << "3";
    if (!spec.rotate.isEmpty())
        args << "-metadata:s:v:0"
             << "ROTATE=" + spec.rotate;
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

bool isRed(QRgb pixel)
{
    return qRed(pixel) > 180 && qGreen(pixel) < 80 && qBlue(pixel) < 80;
}

bool isBlue(QRgb pixel)
{
    return qBlue(pixel) > 180 && qRed(pixel) < 80 && qGreen(pixel) < 80;
}

QRgb cornerPixel(const QImage &image, Corner corner)
{
    const int inset = 40;
    const bool right = corner == Corner::TopRight || corner == Corner::BottomRight;
    const bool bottom = corner == Corner::BottomLeft || corner == Corner::BottomRight;
    return image.pixel(right ? image.width() - inset : inset, bottom ? image.height() - inset : inset);
}

bool markedCorner(const QImage &image, Corner *corner)
{
    int marked = 0;
    for (Corner c : {Corner::TopLeft, Corner::TopRight, Corner::BottomLeft, Corner::BottomRight}) {
        const QRgb pixel = cornerPixel(image, c);
        if (isRed(pixel)) {
            *corner = c;
            ++marked;
        } else if (!isBlue(pixel)) {
            return false;
        }
    }
    return marked == 1;
}

} // namespace VideoFixture
