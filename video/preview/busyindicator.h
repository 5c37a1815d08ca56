#pragma once

#include <QColor>
#include <QQuickPaintedItem>

namespace VCam {

// Two concentric arcs turning in opposite directions, growing in when the
// indicator appears. Every paint advances the animation by one step.
class BusyIndicator : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
public:
    explicit BusyIndicator(QQuickItem *parent = nullptr);

    QColor color() const { return m_color; }
    void setColor(const QColor &color);
    bool isAnimating() const { return m_timerId != -1; }
    double penWidth() const { return m_penWidth; }
    float sweep() const { return m_sweep; }

    // The arcs' thickness for an item of this width, at least one pixel.
    static int thicknessFor(double width);

    void paint(QPainter *painter) override;

signals:
    void colorChanged();

protected:
    void timerEvent(QTimerEvent *event) override;
    void itemChange(ItemChange change, const ItemChangeData &value) override;
    void geometryChanged(const QRectF &newGeometry, const QRectF &oldGeometry) override;

private:
    void reset();
    void startTimer();
    void advance(int thickness);

    double m_penWidth = 0;
    float m_sweep = 0;
    float m_outerAngle = 0;
    float m_innerAngle = 0;
    int m_timerId = -1;
    QColor m_color{0x0d, 0xad, 0xff};
};

} // namespace VCam
