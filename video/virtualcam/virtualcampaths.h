#pragma once

#include <string>

namespace VCam {

// Where the application and the camera sink meet on Linux, and where the
// sink program and the loopback devices are found.
class VirtualCamPaths
{
public:
    // $XDG_RUNTIME_DIR/glint-camera, or /tmp/glint-camera-<uid> without one.
    static std::string directory();
    // Creates the folder (mode 0700) when missing, then checks what is there:
    // a real folder, not a symbolic link, owned by this user and closed to
    // everyone else. Empty when it can be used, else what is wrong with it.
    static std::string directoryProblem();
    static bool ensureDirectory() { return directoryProblem().empty(); }
    static std::string pipePath();
    static std::string readyPath();
    // $GLINT_CAMERA_SINK, else glint-camera-sink beside the program, else the
    // build tree's tools/camerasink/glint-camera-sink; empty when none exists.
    static std::string sinkProgram(const std::wstring &applicationDir);
    // The privileged set-up helper: ../libexec/glint-camera/glint-camera-setup
    // from the program's folder when installed, else the build tree's
    // tools/camerasetup/glint-camera-setup; empty when none exists. pkexec
    // needs the absolute path, which the package's policy names.
    static std::string setupProgram(const std::wstring &applicationDir);
    // $GLINT_PKEXEC or "pkexec" (found on PATH). The variable only changes
    // which program asks for elevation; a stand-in gains no privileges, so
    // the tests use it to record what would be run.
    static std::string pkexecProgram();
    // The kernel's module list, /lib/modules/<release>/modules.dep, or
    // $GLINT_KERNEL_MODULES_DEP.
    static std::string modulesDep();
    // $GLINT_VIDEO4LINUX_SYSFS or /sys/class/video4linux.
    static std::string video4linuxSysfs();
    static std::string toUtf8(const std::wstring &text);
};

} // namespace VCam
