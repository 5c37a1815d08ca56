#include "settingssavemiddleware.h"

namespace VCam {

SettingsSaveMiddleware::SettingsSaveMiddleware(std::set<qint32> skip, std::function<void()> save, int delayMs,
                                               QObject *parent)
    : Bureau::Middleware(parent), m_skip(std::move(skip)), m_save(std::move(save))
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(delayMs);
    // The save runs from the event loop after the stores have handled the
    // action, never in the middle of the dispatch.
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (m_save)
            m_save();
    });
}

std::shared_ptr<Bureau::Action> SettingsSaveMiddleware::process(std::shared_ptr<Bureau::Action> action)
{
    if (!m_skip.count(action->type) && !m_timer.isActive())
        m_timer.start();
    return action;
}

void SettingsSaveMiddleware::stop()
{
    // The shutdown writes the settings itself.
    m_timer.stop();
    Bureau::Middleware::stop();
}

} // namespace VCam
