// glint-camera-setup: the one privileged step of the virtual camera set-up.
// It runs as root through pkexec and does exactly two things: loads
// v4l2loopback with the options the camera needs and writes those options
// to /etc/modprobe.d, so that the device comes back the same after a reboot.
// It takes nothing from the user: any argument is refused, and so is any
// start that did not come through pkexec.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *kModprobe = "/usr/sbin/modprobe";
constexpr const char *kConfFile = "/etc/modprobe.d/glint-camera.conf";
constexpr const char *kConfTemp = "/etc/modprobe.d/.glint-camera.conf.new";
constexpr const char *kOptionsLine = "options v4l2loopback exclusive_caps=1 card_label=\"Glint Camera\"\n";

enum Exit { Ok = 0, Failed = 1, Refused = 2, ModuleMissing = 3 };

int fail(int code, const char *what)
{
    std::fprintf(stderr, "glint-camera-setup: %s\n", what);
    return code;
}

// Runs modprobe with fixed arguments and an empty environment, no shell.
int runModprobe(const char *const *arguments)
{
    static char *const emptyEnvironment[] = {nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, kModprobe, nullptr, nullptr, const_cast<char *const *>(arguments),
                    emptyEnvironment) != 0)
        return -1;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool writeAll(int fd, const char *text)
{
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = ::write(fd, text, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text += written;
        left -= size_t(written);
    }
    return true;
}

// Writes the options file whole or not at all: a temporary file beside it,
// synced, then renamed over it. O_NOFOLLOW and O_EXCL keep a planted link
// from redirecting the write.
bool writeOptions()
{
    ::unlink(kConfTemp);
    const int fd = ::open(kConfTemp, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool ok = ::fchmod(fd, 0644) == 0 && writeAll(fd, kOptionsLine) && ::fsync(fd) == 0;
    if (::close(fd) != 0 || !ok || ::rename(kConfTemp, kConfFile) != 0) {
        ::unlink(kConfTemp);
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **)
{
    if (argc != 1)
        return fail(Refused, "takes no arguments");
    const char *caller = std::getenv("PKEXEC_UID");
    if (!caller || !*caller)
        return fail(Refused, "must be started through pkexec");
    if (::geteuid() != 0)
        return fail(Refused, "must run as root");
    ::umask(022);

    const char *const probe[] = {kModprobe, "--dry-run", "--quiet", "v4l2loopback", nullptr};
    if (runModprobe(probe) != 0)
        return fail(ModuleMissing, "the v4l2loopback module is not installed (package v4l2loopback-dkms)");
    if (!writeOptions())
        return fail(Failed, "could not write /etc/modprobe.d/glint-camera.conf");
    // A module loaded earlier without the label keeps its devices; modprobe
    // then succeeds without change and the caller finds no labelled device.
    const char *const load[] = {kModprobe, "v4l2loopback", "exclusive_caps=1", "card_label=Glint Camera",
                                nullptr};
    if (runModprobe(load) != 0)
        return fail(Failed, "modprobe v4l2loopback failed");
    return Ok;
}
