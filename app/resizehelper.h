#pragma once

#include <QObject>
#include <QSize>

namespace VCam {

// Window geometry for the interface: a start size that fits the screen the
// window opens on, keeping room for a 16:9 preview beside the lens panel.
class ResizeHelper : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QSize preferredSize READ preferredSize CONSTANT)
    Q_PROPERTY(QSize minimumSize READ minimumSize CONSTANT)
public:
    using QObject::QObject;

    QSize preferredSize() const;
    QSize minimumSize() const { return {960, 600}; }

    static QSize fit(const QSize &wanted, const QSize &available, const QSize &minimum);
};

} // namespace VCam
