#pragma once

#include <QImage>
#include <QObject>
#include <QSize>

namespace VCam {

// Turns a processed frame into exactly the picture the preview draws: 32-bit
// RGB (the format both the raster and the OpenGL painter draw without
// converting), at the item's size in device pixels, mirrored when asked. It
// lives on a thread of its own so that none of this costs the interface
// thread.
class PreviewFramePreparer : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The work itself, on the calling thread. A null size keeps the frame's.
    static QImage prepare(const QImage &frame, const QSize &size, bool mirrored);

public slots:
    void onFrame(const QImage &frame, const QSize &size, bool mirrored);

signals:
    void prepared(const QImage &image, bool mirrored);
};

} // namespace VCam
