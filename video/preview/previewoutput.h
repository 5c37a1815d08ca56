#pragma once

#include <QImage>
#include <QQuickPaintedItem>
#include <atomic>

class QThread;

namespace VCam {

class PreviewFramePreparer;

// Shows the processed camera frames, optionally mirrored. The item stretches
// each frame over its whole area; QML keeps the shape right through whRatio.
// Each frame is made ready for drawing (format, size, mirroring) on a thread
// of its own, so painting is a plain copy of an opaque picture; while one
// frame is being prepared only the newest of the frames that arrive waits.
class PreviewOutput : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(bool flip READ flip WRITE setFlip NOTIFY flipChanged)
    Q_PROPERTY(float whRatio READ whRatio NOTIFY whRatioChanged)
public:
    explicit PreviewOutput(QQuickItem *parent = nullptr);
    ~PreviewOutput() override;

    bool flip() const { return m_flip; }
    void setFlip(bool flip);
    float whRatio() const { return m_whRatio; }
    QImage image() const { return m_image; }
    // Whether a camera frame has been painted; safe from any thread.
    bool hasPaintedFrame() const { return m_paintedFrame.load(); }

    void paint(QPainter *painter) override;

public slots:
    void onFrameReady(const QImage &frame);

signals:
    void flipChanged();
    void whRatioChanged();
    // Emitted once the item is part of a scene, so frames can be connected.
    void previewOutputLoaded();
    // A frame has been prepared and the item scheduled for repainting.
    void framePrepared();
    void prepareFrame(const QImage &frame, const QSize &size, bool mirrored);

protected:
    void componentComplete() override;

private:
    void onPrepared(const QImage &image, bool mirrored);
    void requestPreparation();
    QSize pixelSize() const;

    QImage m_image;    // the last frame given
    QImage m_prepared; // the last frame ready to draw
    bool m_preparedMirrored = false;
    bool m_preparing = false;
    bool m_waiting = false; // a newer frame than the one in preparation
    bool m_flip = false;
    float m_whRatio = 16.0f / 9.0f;
    std::atomic_bool m_paintedFrame{false}; // set where the item is painted
    QThread *m_thread = nullptr;
    PreviewFramePreparer *m_preparer = nullptr;
};

} // namespace VCam
