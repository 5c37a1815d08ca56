#include "virtualcamoutputhelper.h"
#include "virtualcampaths.h"
#include "virtualcamsystem.h"

#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

// On Linux the camera is a v4l2loopback device labelled "Glint Camera" fed
// by the glint-camera-sink program; it counts as installed when both exist.

namespace VCam {

namespace {

constexpr const char *kCardLabel = "Glint Camera";

bool labelledDeviceExists()
{
    const std::string root = VirtualCamPaths::video4linuxSysfs();
    DIR *dir = ::opendir(root.c_str());
    if (!dir)
        return false;
    bool found = false;
    while (dirent *entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream nameFile(root + "/" + entry->d_name + "/name");
        std::string name;
        if (std::getline(nameFile, name) && name == kCardLabel) {
            found = true;
            break;
        }
    }
    ::closedir(dir);
    return found;
}

pid_t spawn(const std::vector<std::string> &arguments, bool searchPath)
{
    std::vector<char *> argv;
    for (const auto &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    // The child starts with default signal handling and nothing blocked,
    // whatever this thread has set up.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGTERM);
    sigaddset(&defaults, SIGINT);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int result = searchPath ? posix_spawnp(&pid, argv[0], nullptr, &attributes, argv.data(), environ)
                                  : posix_spawn(&pid, argv[0], nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    return result == 0 ? pid : 0;
}

int waitForExit(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a fixed command through pkexec without a shell: no text from the
// user reaches it.
bool runElevated(const std::vector<std::string> &arguments)
{
    std::vector<std::string> command{VirtualCamPaths::pkexecProgram()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const pid_t pid = spawn(command, true);
    return pid > 0 && waitForExit(pid) == 0;
}

// DKMS and the kernel's own modules are both listed in modules.dep.
bool loopbackModuleAvailable()
{
    if (::access("/sys/module/v4l2loopback", F_OK) == 0)
        return true;
    std::ifstream dep(VirtualCamPaths::modulesDep());
    std::string line;
    while (std::getline(dep, line)) {
        const auto colon = line.find(':');
        const std::string module = line.substr(0, colon);
        const auto slash = module.rfind('/');
        const std::string name = module.substr(slash == std::string::npos ? 0 : slash + 1);
        if (name.rfind("v4l2loopback.ko", 0) == 0)
            return true;
    }
    return false;
}

bool exitedWithin(pid_t pid, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    do {
        if (::waitpid(pid, nullptr, WNOHANG) == pid)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
}

} // namespace

VirtualCamSystem::VirtualCamSystem(std::wstring applicationDir) : m_applicationDir(std::move(applicationDir))
{}

VirtualCamSystem::~VirtualCamSystem()
{
    stopCompanion();
}

bool VirtualCamSystem::isInstalled() const
{
    return !VirtualCamPaths::sinkProgram(m_applicationDir).empty() && labelledDeviceExists();
}

VirtualCamSystem::Readiness VirtualCamSystem::readiness() const
{
    if (VirtualCamPaths::sinkProgram(m_applicationDir).empty())
        return Readiness::SinkMissing;
    if (labelledDeviceExists())
        return Readiness::Ready;
    return loopbackModuleAvailable() ? Readiness::DeviceMissing : Readiness::DriverMissing;
}

// pkexec and the fixed helper, which loads v4l2loopback with the camera's
// options and records them in /etc/modprobe.d; the helper takes no arguments.
std::vector<std::string> VirtualCamSystem::setUpCommand() const
{
    if (readiness() != Readiness::DeviceMissing)
        return {};
    const std::string helper = VirtualCamPaths::setupProgram(m_applicationDir);
    if (helper.empty())
        return {};
    return {VirtualCamPaths::pkexecProgram(), helper};
}

bool VirtualCamSystem::install(const std::wstring &, const std::wstring &)
{
    const std::vector<std::string> command = setUpCommand();
    if (command.empty())
        return false;
    const pid_t pid = spawn(command, true);
    return pid > 0 && waitForExit(pid) == 0 && isInstalled();
}

bool VirtualCamSystem::uninstall(const std::wstring &, const std::wstring &)
{
    return runElevated({"modprobe", "-r", "v4l2loopback"});
}

// The pipe's folder must be ours alone: anyone who could replace the pipe
// or the ready marker could read the user's camera or feed it.
bool VirtualCamSystem::outputAllowed() const
{
    const std::string problem = VirtualCamPaths::directoryProblem();
    if (problem.empty())
        return true;
    qCWarning(lcVirtualCam).noquote() << "Virtual camera off: the folder of its pipe is not safe to use:"
                                      << QString::fromStdString(problem);
    return false;
}

void VirtualCamSystem::startCompanion()
{
    if (m_companion != 0)
        return;
    const std::string sink = VirtualCamPaths::sinkProgram(m_applicationDir);
    if (sink.empty())
        return;
    m_companion = spawn({sink, "--dir", VirtualCamPaths::directory()}, false);
}

void VirtualCamSystem::stopCompanion()
{
    if (m_companion == 0)
        return;
    const pid_t pid = pid_t(m_companion);
    m_companion = 0;
    ::kill(pid, SIGTERM);
    if (!exitedWithin(pid, std::chrono::milliseconds(2000))) {
        ::kill(pid, SIGKILL);
        waitForExit(pid);
    }
}

} // namespace VCam
