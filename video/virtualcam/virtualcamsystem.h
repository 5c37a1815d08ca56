#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VCam {

// What the virtual camera needs from the operating system beyond the pipe:
// whether the camera is installed, installing it, and the companion process
// that serves the camera while the output runs (none on every system where
// the camera is a driver or filter of its own).
class VirtualCamSystem
{
public:
    explicit VirtualCamSystem(std::wstring applicationDir);
    ~VirtualCamSystem();
    VirtualCamSystem(const VirtualCamSystem &) = delete;
    VirtualCamSystem &operator=(const VirtualCamSystem &) = delete;

    // What stands between the user and a working camera.
    enum class Readiness { Ready, SinkMissing, DriverMissing, DeviceMissing };

    bool isInstalled() const;
    Readiness readiness() const;
    // The program and arguments of the one step that makes a missing
    // camera device (no shell, nothing from the user); empty when that step
    // cannot help.
    std::vector<std::string> setUpCommand() const;
    bool install(const std::wstring &filterPath64, const std::wstring &filterPath32);
    bool uninstall(const std::wstring &filterPath64, const std::wstring &filterPath32);
    // True when the output may start; otherwise the reason is logged.
    bool outputAllowed() const;
    void startCompanion();
    void stopCompanion();

private:
    std::wstring m_applicationDir;
    std::intptr_t m_companion = 0;
};

} // namespace VCam
