#include "backgroundpainter.h"

#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>
#include <QRandomGenerator>

namespace {

QImage canvas()
{
    QImage image(BackgroundPainter::kWidth, BackgroundPainter::kHeight, QImage::Format_RGB32);
    image.fill(Qt::black);
    return image;
}

// A soft round glow: full colour in the middle fading to nothing at the rim.
void glow(QPainter &painter, QPointF centre, qreal radius, QColor colour, qreal softness)
{
    QRadialGradient gradient(centre, radius);
    QColor edge = colour;
    edge.setAlpha(0);
    gradient.setColorAt(0, colour);
    gradient.setColorAt(1.0 - softness, colour);
    gradient.setColorAt(1, edge);
    painter.setPen(Qt::NoPen);
    painter.setBrush(gradient);
    painter.drawEllipse(centre, radius, radius);
}

} // namespace

QStringList BackgroundPainter::names()
{
    return {"soft-gradient", "blurred-lights", "plain-room", "studio-grey"};
}

QImage BackgroundPainter::paint(const QString &name)
{
    if (name == "soft-gradient")
        return softGradient();
    if (name == "blurred-lights")
        return blurredLights();
    if (name == "plain-room")
        return plainRoom();
    if (name == "studio-grey")
        return studioGrey();
    return {};
}

// Teal to violet across the picture, with two wide pale glows.
QImage BackgroundPainter::softGradient()
{
    QImage image = canvas();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient base(0, 0, kWidth, kHeight);
    base.setColorAt(0, QColor(38, 120, 140));
    base.setColorAt(0.55, QColor(86, 80, 160));
    base.setColorAt(1, QColor(150, 70, 140));
    painter.fillRect(image.rect(), base);
    glow(painter, {kWidth * 0.2, kHeight * 0.25}, 520, QColor(255, 255, 255, 60), 0.9);
    glow(painter, {kWidth * 0.85, kHeight * 0.8}, 460, QColor(255, 210, 230, 50), 0.9);
    return image;
}

// Out-of-focus lights of an evening street: warm and cool discs of many
// sizes over a dark blue-brown ground.
QImage BackgroundPainter::blurredLights()
{
    QImage image = canvas();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient base(0, 0, 0, kHeight);
    base.setColorAt(0, QColor(16, 18, 36));
    base.setColorAt(1, QColor(44, 28, 24));
    painter.fillRect(image.rect(), base);
    const QColor palette[] = {
        {255, 196, 110}, {255, 150, 80}, {255, 230, 170}, {120, 170, 255}, {255, 110, 140}};
    QRandomGenerator random(20261123);
    painter.setCompositionMode(QPainter::CompositionMode_Plus);
    for (int i = 0; i < 70; ++i) {
        const QPointF centre(random.bounded(kWidth), kHeight * 0.15 + random.bounded(kHeight * 0.75));
        const qreal radius = 18 + random.bounded(70.0);
        QColor colour = palette[random.bounded(5)];
        colour.setAlpha(40 + random.bounded(70));
        glow(painter, centre, radius, colour, 0.35);
    }
    return image;
}

// A quiet room: a warm wall with faint panels, a window casting light, a
// shelf and the floor.
QImage BackgroundPainter::plainRoom()
{
    QImage image = canvas();
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const int floorTop = kHeight * 82 / 100;
    QLinearGradient wall(0, 0, kWidth, 0);
    wall.setColorAt(0, QColor(214, 200, 178));
    wall.setColorAt(1, QColor(182, 166, 146));
    painter.fillRect(0, 0, kWidth, floorTop, wall);
    painter.setPen(QPen(QColor(0, 0, 0, 18), 2));
    for (int x = 80; x < kWidth; x += 160)
        painter.drawLine(x, 0, x, floorTop);
    // The window and the light it lets in.
    const QRect window(kWidth * 8 / 100, kHeight * 12 / 100, 300, 340);
    QLinearGradient sky(window.topLeft(), window.bottomLeft());
    sky.setColorAt(0, QColor(170, 210, 240));
    sky.setColorAt(1, QColor(225, 238, 246));
    painter.fillRect(window, sky);
    painter.setPen(QPen(QColor(245, 242, 236), 14));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(window);
    painter.drawLine(window.center().x(), window.top(), window.center().x(), window.bottom());
    painter.drawLine(window.left(), window.center().y(), window.right(), window.center().y());
    glow(painter, window.center() + QPoint(120, 80), 420, QColor(255, 248, 225, 70), 0.8);
    // A shelf with a few books and a plant pot.
    const int shelfY = kHeight * 45 / 100;
    painter.fillRect(kWidth * 62 / 100, shelfY, 380, 14, QColor(120, 86, 58));
    const QColor spines[] = {{150, 60, 50}, {60, 90, 120}, {200, 170, 90}, {80, 120, 80}, {110, 70, 110}};
    int x = kWidth * 64 / 100;
    for (int i = 0; i < 9; ++i) {
        const int width = 18 + (i * 7) % 14;
        const int height = 70 + (i * 13) % 30;
        painter.fillRect(x, shelfY - height, width, height, spines[i % 5]);
        x += width + 3;
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(170, 100, 70));
    painter.drawRect(kWidth * 88 / 100, shelfY - 50, 44, 50);
    painter.setBrush(QColor(70, 120, 70));
    painter.drawEllipse(QPointF(kWidth * 88 / 100 + 22, shelfY - 78), 44, 36);
    // The floor and the skirting board.
    QLinearGradient floor(0, floorTop, 0, kHeight);
    floor.setColorAt(0, QColor(140, 102, 72));
    floor.setColorAt(1, QColor(96, 68, 48));
    painter.fillRect(0, floorTop, kWidth, kHeight - floorTop, floor);
    painter.fillRect(0, floorTop - 12, kWidth, 12, QColor(236, 230, 220));
    return image;
}

// A photographer's backdrop: mid grey, lighter behind the subject,
// darker towards the corners.
QImage BackgroundPainter::studioGrey()
{
    QImage image = canvas();
    QPainter painter(&image);
    QRadialGradient backdrop(QPointF(kWidth / 2.0, kHeight * 0.45), kWidth * 0.75);
    backdrop.setColorAt(0, QColor(150, 152, 156));
    backdrop.setColorAt(0.6, QColor(96, 98, 104));
    backdrop.setColorAt(1, QColor(40, 42, 46));
    painter.fillRect(image.rect(), backdrop);
    return image;
}
