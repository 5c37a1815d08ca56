#include "virtualcampaths.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace VCam {

namespace {

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

bool isExecutable(const std::string &path)
{
    struct stat info;
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

void appendUtf8(std::string &out, uint32_t c)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

} // namespace

std::string VirtualCamPaths::directory()
{
    const std::string runtime = environment("XDG_RUNTIME_DIR");
    if (!runtime.empty())
        return runtime + "/glint-camera";
    return "/tmp/glint-camera-" + std::to_string(::getuid());
}

std::string VirtualCamPaths::directoryProblem()
{
    const std::string dir = directory();
    if (::mkdir(dir.c_str(), 0700) < 0 && errno != EEXIST)
        return dir + " can't be created: " + std::strerror(errno);
    struct stat info;
    if (::lstat(dir.c_str(), &info) < 0)
        return dir + " can't be examined: " + std::strerror(errno);
    if (S_ISLNK(info.st_mode))
        return dir + " is a symbolic link";
    if (!S_ISDIR(info.st_mode))
        return dir + " is not a folder";
    if (info.st_uid != ::getuid())
        return dir + " belongs to another user (uid " + std::to_string(info.st_uid) + ")";
    if ((info.st_mode & 077) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%03o", unsigned(info.st_mode & 0777));
        return dir + " is open to other users (mode " + mode + ")";
    }
    return {};
}

std::string VirtualCamPaths::pipePath()
{
    return directory() + "/GlintVirtualCamPipe";
}

std::string VirtualCamPaths::readyPath()
{
    return directory() + "/GlintVirtualCamEvent";
}

std::string VirtualCamPaths::sinkProgram(const std::wstring &applicationDir)
{
    const std::string overridden = environment("GLINT_CAMERA_SINK");
    if (!overridden.empty())
        return isExecutable(overridden) ? overridden : std::string();
    const std::string dir = toUtf8(applicationDir);
    for (const std::string &candidate :
         {dir + "/glint-camera-sink", dir + "/../tools/camerasink/glint-camera-sink"}) {
        if (isExecutable(candidate))
            return candidate;
    }
    return {};
}

std::string VirtualCamPaths::setupProgram(const std::wstring &applicationDir)
{
    const std::string dir = toUtf8(applicationDir);
    for (const std::string &candidate : {dir + "/../libexec/glint-camera/glint-camera-setup",
                                         dir + "/../tools/camerasetup/glint-camera-setup"}) {
        char resolved[PATH_MAX];
        if (isExecutable(candidate) && ::realpath(candidate.c_str(), resolved))
            return resolved;
    }
    return {};
}

std::string VirtualCamPaths::pkexecProgram()
{
    const std::string overridden = environment("GLINT_PKEXEC");
    return overridden.empty() ? std::string("pkexec") : overridden;
}

std::string VirtualCamPaths::modulesDep()
{
    const std::string overridden = environment("GLINT_KERNEL_MODULES_DEP");
    if (!overridden.empty())
        return overridden;
    struct utsname system;
    if (::uname(&system) != 0)
        return {};
    return std::string("/lib/modules/") + system.release + "/modules.dep";
}

std::string VirtualCamPaths::video4linuxSysfs()
{
    const std::string overridden = environment("GLINT_VIDEO4LINUX_SYSFS");
    return overridden.empty() ? std::string("/sys/class/video4linux") : overridden;
}

std::string VirtualCamPaths::toUtf8(const std::wstring &text)
{
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text)
        appendUtf8(out, uint32_t(c));
    return out;
}

} // namespace VCam
