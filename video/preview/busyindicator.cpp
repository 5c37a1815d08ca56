#include "busyindicator.h"

#include <QPainter>
#include <QTimerEvent>
#include <cmath>

namespace VCam {

namespace {
constexpr int kFrameMs = 16;
constexpr float kFullSweep = 216;
constexpr float kSweepStep = 34;
constexpr float kAngleStep = 5;
} // namespace

BusyIndicator::BusyIndicator(QQuickItem *parent) : QQuickPaintedItem(parent)
{
    setFillColor(Qt::transparent);
    if (isVisible())
        startTimer();
}

int BusyIndicator::thicknessFor(double width)
{
    return std::max(int(std::ceil(width * 0.07)), 1);
}

void BusyIndicator::setColor(const QColor &color)
{
    if (m_color == color)
        return;
    m_color = color;
    update();
    emit colorChanged();
}

void BusyIndicator::startTimer()
{
    m_timerId = QObject::startTimer(kFrameMs, Qt::CoarseTimer);
}

void BusyIndicator::reset()
{
    m_penWidth = 0;
    m_sweep = 0;
    m_outerAngle = 0;
    m_innerAngle = 0;
    if (m_timerId != -1)
        killTimer(m_timerId);
    m_timerId = -1;
    update();
}

void BusyIndicator::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_timerId)
        update();
}

void BusyIndicator::itemChange(ItemChange change, const ItemChangeData &value)
{
    QQuickPaintedItem::itemChange(change, value);
    if (change != ItemVisibleHasChanged)
        return;
    if (!value.boolValue)
        reset();
    else if (m_timerId == -1)
        startTimer();
}

void BusyIndicator::geometryChanged(const QRectF &newGeometry, const QRectF &oldGeometry)
{
    QQuickPaintedItem::geometryChanged(newGeometry, oldGeometry);
    if (newGeometry.size() == oldGeometry.size())
        return;
    reset();
    // A hidden indicator (its own flag or a parent's) must not tick: every
    // tick asks the window for a new frame.
    if (isVisible())
        startTimer();
}

void BusyIndicator::advance(int thickness)
{
    m_outerAngle += kAngleStep;
    if (m_outerAngle >= 360)
        m_outerAngle -= 360;
    m_innerAngle -= kAngleStep;
    if (m_innerAngle <= -360)
        m_innerAngle += 360;
    if (m_sweep < kFullSweep)
        m_sweep = std::min(m_sweep + kSweepStep, kFullSweep);
    if (m_penWidth < thickness)
        m_penWidth = std::min(m_penWidth + (thickness * 16) / 100.0, double(thickness));
}

void BusyIndicator::paint(QPainter *painter)
{
    if (!isVisible())
        return;
    const int thickness = thicknessFor(width());
    advance(thickness);
    painter->setRenderHint(QPainter::Antialiasing);
    QPen pen(m_color, m_penWidth);
    pen.setCapStyle(Qt::RoundCap);
    painter->setPen(pen);

    const QSizeF size = contentsBoundingRect().size();
    const double side = std::min(size.width(), size.height());
    const QRectF square(QPointF(width() / 2 - side / 2, height() / 2 - side / 2), QSizeF(side, side));
    const QRectF outer = square.adjusted(thickness, thickness, -thickness, -thickness);
    painter->drawArc(outer, int((m_outerAngle - 18) * 16), int(m_sweep * 16));
    const int gap = std::max(int(std::ceil(width() * 0.2386)), 1);
    const QRectF inner = outer.adjusted(gap, gap, -gap, -gap);
    painter->drawArc(inner, int((m_innerAngle + 164) * 16), int(m_sweep * 16));
}

} // namespace VCam
