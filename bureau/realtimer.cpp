#include "realtimer.h"

#include <QMetaType>
#include <cstdlib>

namespace VCam {

namespace {
constexpr qint64 kAllowedDeviationMs = 1000;
}

RealTimer::RealTimer(QObject *parent) : QObject(parent), m_timer(this)
{
    qRegisterMetaType<Qt::ApplicationState>(
        (QByteArray(qt_getQtMetaObject()->className()) + "::ApplicationState").constData());
    m_timer.setSingleShot(true);
    // A coarse timer may drift by 5% of its interval, which would read as a
    // deviation worth correcting on every check.
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &RealTimer::onTimeout);
}

RealTimer::RealTimer(qint64 intervalMs, QObject *parent) : RealTimer(parent)
{
    m_interval = intervalMs;
}

void RealTimer::start(qint64 intervalMs)
{
    m_startedAt = QDateTime::currentDateTimeUtc();
    m_deadline = m_startedAt.addMSecs(intervalMs);
    m_interval = intervalMs;
    m_timer.start(static_cast<int>(intervalMs));
}

void RealTimer::stop()
{
    m_timer.stop();
}

bool RealTimer::isActive() const
{
    return m_timer.isActive();
}

void RealTimer::shiftDeadline(qint64 ms)
{
    m_startedAt = m_startedAt.addMSecs(ms);
    m_deadline = m_deadline.addMSecs(ms);
}

void RealTimer::onTimeout()
{
    emit timeout();
    start(m_interval);
}

void RealTimer::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (!m_timer.isActive() || state == Qt::ApplicationSuspended)
        return;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (m_deadline < now) {
        emit timeout();
        start(m_interval);
        return;
    }
    const qint64 remaining = now.msecsTo(m_deadline);
    if (std::llabs(m_timer.remainingTime() - remaining) > kAllowedDeviationMs)
        m_timer.start(static_cast<int>(remaining));
}

} // namespace VCam
