#include "videofixture.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtTest>

namespace VideoFixture {

// Writes a quarter-turn into the track header's display matrix, the way
// phones mark rotated recordings (a 0 1 / -1 0 matrix for 90 degrees).
bool setDisplayMatrix(const QString &path, int degrees)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    const QByteArray data = file.readAll();
    const int box = data.indexOf("tkhd");
    if (box < 0 || (degrees != 90 && degrees != 270))
        return false;
    const int payload = box + 4;
    const int matrix = payload + (data.at(payload) == 1 ? 52 : 40);
    const qint32 turn = degrees == 90 ? 0x10000 : -0x10000;
    const qint32 entries[] = {0, turn, 0, -turn, 0};
    QDataStream out(&file);
    file.seek(matrix);
    for (qint32 entry : entries)
        out << entry; // big-endian, as MP4 stores it
    return out.status() == QDataStream::Ok;
}

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
    const bool mp4 = name.endsWith(".mp4");
    if (!spec.rotate.isEmpty() && !mp4)
        args << "-metadata:s:v:0"
             << "ROTATE=" + spec.rotate; // Matroska keeps tags as written
    args << path;

    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", args);
    const bool ok = ffmpeg.waitForFinished(60000) && ffmpeg.exitStatus() == QProcess::NormalExit &&
                    ffmpeg.exitCode() == 0;
    if (!ok) {
        qWarning() << "ffmpeg failed:" << ffmpeg.readAllStandardError();
        return {};
    }
    if (mp4 && !spec.rotate.isEmpty() && !setDisplayMatrix(path, spec.rotate.toInt()))
        return {};
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

static QRgb cornerPixel(const QImage &image, Corner corner)
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
