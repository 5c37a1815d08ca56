#pragma once

#include <QImage>
#include <QSize>
#include <QString>

// Small real videos made with the ffmpeg command for the frame source tests.
// Each picture is blue with a red box over the top-left quarter, so the
// orientation of a decoded picture can be read from its corners.
namespace VideoFixture {

struct Spec
{
    QString codec = QStringLiteral("mjpeg"); // "mjpeg" or "rawvideo" (YUYV, like a webcam)
    QSize size{640, 480};
    int frames = 5;
    int fps = 25;
    QString rotate; // the stream's rotate tag; empty for none
};

// Writes the video into dir and returns its path; fails the test (empty
// path) when ffmpeg does not succeed.
QString make(const QString &dir, const QString &name, const Spec &spec);

enum class Corner { TopLeft, TopRight, BottomLeft, BottomRight };
// The single corner that carries the red mark; fails when not exactly one.
bool markedCorner(const QImage &image, Corner *corner);

} // namespace VideoFixture
