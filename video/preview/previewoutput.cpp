#include "previewoutput.h"

#include "previewframepreparer.h"

#include <QPainter>
#include <QQuickWindow>
#include <QThread>

namespace VCam {

PreviewOutput::PreviewOutput(QQuickItem *parent)
    : QQuickPaintedItem(parent), m_thread(new QThread(this)), m_preparer(new PreviewFramePreparer)
{
    setObjectName(QStringLiteral("PreviewOutput"));
    setFlag(ItemHasContents, true);
    setRenderTarget(FramebufferObject);
    // The picture covers the item: nothing under it needs drawing, and it
    // is drawn without blending.
    setOpaquePainting(true);
    m_preparer->moveToThread(m_thread);
    connect(m_thread, &QThread::finished, m_preparer, &QObject::deleteLater);
    connect(this, &PreviewOutput::prepareFrame, m_preparer, &PreviewFramePreparer::onFrame);
    connect(m_preparer, &PreviewFramePreparer::prepared, this, &PreviewOutput::onPrepared);
    m_thread->start();
}

PreviewOutput::~PreviewOutput()
{
    m_thread->quit();
    m_thread->wait();
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
    requestPreparation();
    update();
}

QSize PreviewOutput::pixelSize() const
{
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    return QSize(qRound(width() * ratio), qRound(height() * ratio));
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
    requestPreparation();
}

void PreviewOutput::requestPreparation()
{
    if (m_image.isNull())
        return;
    if (m_preparing) {
        m_waiting = true;
        return;
    }
    m_preparing = true;
    m_waiting = false;
    emit prepareFrame(m_image, pixelSize(), m_flip);
}

void PreviewOutput::onPrepared(const QImage &image, bool mirrored)
{
    m_preparing = false;
    m_prepared = image;
    m_preparedMirrored = mirrored;
    update();
    emit framePrepared();
    if (m_waiting)
        requestPreparation();
}

void PreviewOutput::paint(QPainter *painter)
{
    const QRect area(0, 0, int(width()), int(height()));
    if (!m_prepared.isNull() && m_preparedMirrored == m_flip) {
        // Prepared at the item's size this is a plain copy; right after a
        // resize it is stretched until the next frame.
        painter->drawImage(area, m_prepared);
        m_paintedFrame = true;
        return;
    }
    if (m_image.isNull())
        return;
    // Nothing prepared for the current mirroring yet: draw the frame itself.
    if (m_flip) {
        painter->translate(area.width() / 2.0, area.height() / 2.0);
        painter->scale(-1, 1);
        painter->translate(-area.width() / 2.0, -area.height() / 2.0);
    }
    painter->drawImage(area, m_image);
    m_paintedFrame = true;
}

} // namespace VCam
