#include "gesturehandler.h"

#include <orb/coremanager.h>

namespace VCam {

GestureHandler::GestureHandler(std::shared_ptr<Orb::CoreManager> coreManager)
    : m_coreManager(std::move(coreManager))
{}

bool GestureHandler::handle(const GestureEvent &event, const QSize &frameSize)
{
    if (!m_coreManager || event.type == GestureType::None || frameSize.isEmpty())
        return false;
    Orb::TouchEvent touch;
    touch.type = static_cast<Orb::TouchEvent::Type>(event.type);
    touch.x = float(event.location.x() / frameSize.width());
    touch.y = float(event.location.y() / frameSize.height());
    return m_coreManager->processTouchEvent(touch);
}

} // namespace VCam
