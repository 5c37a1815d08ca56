#pragma once

#include <QImage>
#include <QQuickPaintedItem>

namespace VCam {

// Shows the processed camera frames, optionally mirrored. The item stretches
// each frame over its whole area; QML keeps the shape right through whRatio.
class PreviewOutput : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(bool flip READ flip WRITE setFlip NOTIFY flipChanged)
    Q_PROPERTY(float whRatio READ whRatio NOTIFY whRatioChanged)
public:
    explicit PreviewOutput(QQuickItem *parent = nullptr);

    bool flip() const { return m_flip; }
    void setFlip(bool flip);
    float whRatio() const { return m_whRatio; }
    QImage image() const { return m_image; }

    void paint(QPainter *painter) override;

public slots:
    void onFrameReady(const QImage &frame);

signals:
    void flipChanged();
    void whRatioChanged();
    // Emitted once the item is part of a scene, so frames can be connected.
    void previewOutputLoaded();

protected:
    void componentComplete() override;

private:
    QImage m_image;
    bool m_flip = false;
    float m_whRatio = 16.0f / 9.0f;
};

} // namespace VCam
