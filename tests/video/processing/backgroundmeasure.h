#pragma once

// Measures for background-effect tests: how much fine detail a region of a
// picture holds, so a blurred background shows as a drop while the face,
// which the effect leaves alone, keeps its detail.
#include <QImage>
#include <QRect>
#include <cmath>

namespace BackgroundMeasure {

// Mean absolute Laplacian of the luminance over the region (0 for a flat
// region; a few units for a soft one; tens for stripes and edges).
inline double detail(const QImage &image, const QRect &region)
{
    const QImage grey = image.convertToFormat(QImage::Format_Grayscale8);
    const QRect area = region.intersected(grey.rect().adjusted(1, 1, -1, -1));
    if (area.isEmpty())
        return -1;
    double sum = 0;
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        const uchar *up = grey.constScanLine(y - 1);
        const uchar *row = grey.constScanLine(y);
        const uchar *down = grey.constScanLine(y + 1);
        for (int x = area.left(); x <= area.right(); ++x, ++count)
            sum += std::abs(4 * row[x] - row[x - 1] - row[x + 1] - up[x] - down[x]);
    }
    return sum / count;
}

// A region given in fractions of the image's width and height.
inline QRect part(const QImage &image, double left, double top, double width, double height)
{
    return QRect(int(image.width() * left), int(image.height() * top), int(image.width() * width),
                 int(image.height() * height));
}

} // namespace BackgroundMeasure
