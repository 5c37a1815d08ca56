#pragma once

#include <QObject>
#include <QTimer>

namespace VCam {

// Turns a burst of requests into one emission at its start and at most one
// more when the interval ends. In mode 1 every further request restarts the
// interval, so the trailing emission comes one interval after the last one.
class ActionThrottler : public QObject
{
    Q_OBJECT
public:
    enum Mode { Plain = 0, RestartOnRequest = 1 };

    ActionThrottler(int intervalMs, int mode, QObject *parent = nullptr);

public slots:
    void trigger();

signals:
    void triggered();

private slots:
    void onTimeout();

private:
    QTimer m_timer;
    bool m_pending = false;
    int m_mode;
};

} // namespace VCam
