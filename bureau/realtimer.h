#pragma once

#include <QDateTime>
#include <QObject>
#include <QTimer>

namespace VCam {

// A repeating timer that keeps to wall-clock time: when the application
// becomes active again (for example after the computer slept) it fires at
// once if its deadline passed, or corrects its remaining time.
class RealTimer : public QObject
{
    Q_OBJECT
public:
    explicit RealTimer(QObject *parent = nullptr);
    RealTimer(qint64 intervalMs, QObject *parent = nullptr);

    void start(qint64 intervalMs);
    void start() { start(m_interval); }
    void stop();
    bool isActive() const;
    qint64 interval() const { return m_interval; }
    QDateTime deadline() const { return m_deadline; }
    int remainingTime() const { return m_timer.remainingTime(); }

    // Moves the deadline, as if the timer had been started earlier or later;
    // the running QTimer is left alone. Lets a caller simulate a sleep.
    void shiftDeadline(qint64 ms);

signals:
    void timeout();

public slots:
    void onApplicationStateChanged(Qt::ApplicationState state);
    void onTimeout();

private:
    QDateTime m_startedAt;
    QDateTime m_deadline;
    QTimer m_timer;
    qint64 m_interval = -1;
};

} // namespace VCam
