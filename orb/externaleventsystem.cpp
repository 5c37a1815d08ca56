#include "externaleventsystem.h"

#include <algorithm>

namespace Orb::Mosaica::Infrastructure {

ExternalEventSystem::ExternalEventSystem(std::vector<std::string> supportedEvents)
    : m_supported(std::move(supportedEvents))
{}

bool ExternalEventSystem::supports(const std::string &name) const
{
    return std::find(m_supported.begin(), m_supported.end(), name) != m_supported.end();
}

void ExternalEventSystem::triggerEvents(const std::string &type, const std::string &data)
{
    const std::string &name = type.empty() ? data : type;
    if (!supports(name) || !m_handler)
        return;
    m_handler(name, type.empty() ? std::string() : data);
}

} // namespace Orb::Mosaica::Infrastructure
