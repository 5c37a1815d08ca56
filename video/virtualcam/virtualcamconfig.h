#pragma once

#include <cstdint>
#include <string>

namespace VCam {

// Output settings of the virtual camera. The display names are kept for the
// caller only; the camera side never receives them.
struct VirtualCamConfig
{
    uint32_t width = 1280;
    uint32_t height = 720;
    std::wstring friendlyName = L"Glint Camera";
    std::wstring deviceName = L"Glint Camera";
};

} // namespace VCam
