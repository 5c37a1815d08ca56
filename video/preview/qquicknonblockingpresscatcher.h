#pragma once

#include <QQuickItem>

namespace VCam {

// Reports presses without taking them: the press still reaches the items
// underneath.
class QQuickNonBlockingPressCatcher : public QQuickItem
{
    Q_OBJECT
public:
    explicit QQuickNonBlockingPressCatcher(QQuickItem *parent = nullptr);

signals:
    void pressed();

protected:
    void mousePressEvent(QMouseEvent *event) override;
};

} // namespace VCam
