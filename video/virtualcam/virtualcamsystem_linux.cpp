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

// Runs an elevated modprobe without a shell: the arguments are fixed, no
// text from the user reaches the command.
bool runElevated(const std::vector<std::string> &arguments)
{
    std::vector<std::string> command{"pkexec"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const pid_t pid = spawn(command, true);
    return pid > 0 && waitForExit(pid) == 0;
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

bool VirtualCamSystem::install(const std::wstring &, const std::wstring &)
{
    // Loading the module cannot help while the sink program is missing.
    if (VirtualCamPaths::sinkProgram(m_applicationDir).empty())
        return false;
    return runElevated(
               {"modprobe", "v4l2loopback", "exclusive_caps=1", std::string("card_label=") + kCardLabel}) &&
           isInstalled();
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
