#pragma once

#include <functional>
#include <string>
#include <vector>

namespace Orb::Mosaica::Infrastructure {

// Receives named events from outside the lens (local tools, streaming
// platforms) and passes those the lens declared on to its behaviours.
class ExternalEventSystem
{
public:
    using Handler = std::function<void(const std::string &name, const std::string &data)>;

    explicit ExternalEventSystem(std::vector<std::string> supportedEvents);

    // type is the event name and data its payload. When type is empty the
    // name is taken from data, so an event that only carries a name in its
    // payload still arrives. Events the lens did not declare are ignored.
    void triggerEvents(const std::string &type, const std::string &data);

    const std::vector<std::string> &supportedEvents() const { return m_supported; }
    bool supports(const std::string &name) const;
    void setHandler(Handler handler) { m_handler = std::move(handler); }

private:
    std::vector<std::string> m_supported;
    Handler m_handler;
};

} // namespace Orb::Mosaica::Infrastructure
