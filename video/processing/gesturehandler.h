#pragma once

#include <QSize>
#include <gestureevent.h>
#include <memory>

namespace Orb {
class CoreManager;
}

namespace VCam {

// Hands taps and touches on the picture to the lens. Events come in frame
// pixels; the library takes them normalized to the frame (0..1).
class GestureHandler
{
public:
    explicit GestureHandler(std::shared_ptr<Orb::CoreManager> coreManager);

    // True when the lens used the event.
    bool handle(const GestureEvent &event, const QSize &frameSize);

private:
    std::shared_ptr<Orb::CoreManager> m_coreManager;
};

} // namespace VCam
