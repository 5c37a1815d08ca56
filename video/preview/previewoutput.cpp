#include "previewoutput.h"

#include <QPainter>

namespace VCam {

PreviewOutput::PreviewOutput(QQuickItem *parent) : QQuickPaintedItem(parent)
{
    setObjectName(QStringLiteral("PreviewOutput"));
    setFlag(ItemHasContents, true);
    setRenderTarget(FramebufferObject);
    setAntialiasing(true);
}

void PreviewOutput::componentComplete()
{
    QQuickPaintedItem::componentComplete();
    emit previewOutputLoaded();
}

void PreviewOutput::setFlip(bool flip)
{
    m_flip = flip;
    emit flipChanged();
    update();
}

void PreviewOutput::onFrameReady(const QImage &frame)
{
    m_image = frame;
    if (!frame.isNull()) {
        const float ratio = float(frame.width()) / float(frame.height());
        if (!qFuzzyCompare(ratio, m_whRatio)) {
            m_whRatio = ratio;
            emit whRatioChanged();
        }
    }
    update();
}

void PreviewOutput::paint(QPainter *painter)
{
    if (m_image.isNull())
        return;
    const int w = int(width());
    const int h = int(height());
    if (m_flip) {
        painter->translate(w / 2.0, h / 2.0);
        painter->scale(-1, 1);
        painter->translate(-w / 2.0, -h / 2.0);
    }
    painter->drawImage(QRect(0, 0, w, h), m_image);
}

} // namespace VCam
