#include "previewframepreparer.h"

#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale_argb.h>

namespace VCam {

namespace {
// libyuv names formats by their order in a 32-bit word: its "ARGB" is the
// bytes B, G, R, A, which is QImage::Format_RGB32 on little-endian machines,
// and its "RAW" is the bytes R, G, B of QImage::Format_RGB888.
QImage toRgb32(const QImage &frame)
{
    if (frame.format() == QImage::Format_RGB32 || frame.format() == QImage::Format_ARGB32_Premultiplied)
        return frame;
    QImage out(frame.size(), QImage::Format_RGB32);
    if (out.isNull())
        return out;
    int done = -1;
    if (frame.format() == QImage::Format_RGB888)
        done = libyuv::RAWToARGB(frame.constBits(), int(frame.bytesPerLine()), out.bits(),
                                 int(out.bytesPerLine()), frame.width(), frame.height());
    else if (frame.format() == QImage::Format_RGBA8888 || frame.format() == QImage::Format_RGBX8888)
        done = libyuv::ABGRToARGB(frame.constBits(), int(frame.bytesPerLine()), out.bits(),
                                  int(out.bytesPerLine()), frame.width(), frame.height());
    return done == 0 ? out : frame.convertToFormat(QImage::Format_RGB32);
}
} // namespace

QImage PreviewFramePreparer::prepare(const QImage &frame, const QSize &size, bool mirrored)
{
    if (frame.isNull())
        return {};
    QImage image = toRgb32(frame);
    const QSize target = size.isValid() && !size.isEmpty() ? size : image.size();
    if (target != image.size()) {
        QImage scaled(target, QImage::Format_RGB32);
        if (scaled.isNull() ||
            libyuv::ARGBScale(image.constBits(), int(image.bytesPerLine()), image.width(), image.height(),
                              scaled.bits(), int(scaled.bytesPerLine()), target.width(), target.height(),
                              libyuv::kFilterBilinear) != 0)
            return {};
        image = scaled;
    }
    if (mirrored) {
        QImage flipped(image.size(), QImage::Format_RGB32);
        if (flipped.isNull() ||
            libyuv::ARGBMirror(image.constBits(), int(image.bytesPerLine()), flipped.bits(),
                               int(flipped.bytesPerLine()), image.width(), image.height()) != 0)
            return {};
        image = flipped;
    }
    return image;
}

void PreviewFramePreparer::onFrame(const QImage &frame, const QSize &size, bool mirrored)
{
    emit prepared(prepare(frame, size, mirrored), mirrored);
}

} // namespace VCam
