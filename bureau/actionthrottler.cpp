#include "actionthrottler.h"

namespace VCam {

ActionThrottler::ActionThrottler(int intervalMs, int mode, QObject *parent)
    : QObject(parent), m_timer(this), m_mode(mode)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(intervalMs);
    connect(&m_timer, &QTimer::timeout, this, &ActionThrottler::onTimeout);
}

void ActionThrottler::trigger()
{
    if (!m_timer.isActive()) {
        m_timer.start();
        emit triggered();
        return;
    }
    m_pending = true;
    if (m_mode == RestartOnRequest)
        m_timer.start();
}

void ActionThrottler::onTimeout()
{
    if (!m_pending)
        return;
    m_pending = false;
    m_timer.start();
    emit triggered();
}

} // namespace VCam
