#pragma once

#include <cstdint>

namespace VCam {

// The named, manual-reset readiness signal: the camera side sets it when
// its end of the pipe is ready; it stays set until reset.
class VirtualCamEvent
{
public:
    VirtualCamEvent() = default;
    ~VirtualCamEvent();
    VirtualCamEvent(const VirtualCamEvent &) = delete;
    VirtualCamEvent &operator=(const VirtualCamEvent &) = delete;

    // Creates the signal or opens the existing one.
    bool open();
    // Blocks until the signal is set.
    void wait();
    void set();
    void reset();
    void close();

private:
    std::intptr_t m_handle = 0;
    bool m_open = false;
};

} // namespace VCam
