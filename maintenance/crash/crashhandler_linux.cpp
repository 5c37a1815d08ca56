// The Linux crash handler. The work happens outside the crashed process: at
// start the application launches the crash handler program and keeps a
// socket to it; the signal, terminate and new handlers below only tell that
// program which thread crashed, let it trace the process, wait for it with
// a bounded time and end the process with exit code 1. Everything that runs
// in a signal handler here is async-signal-safe: no allocation, no locks,
// only system calls on memory prepared at start.
#include "crashprotocol.h"
#include "fatalsignals.h"
#include "icrashhandler.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <fcntl.h>
#include <glintdeployment.h>
#include <new>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

extern char **environ;

namespace CrashReport {

namespace {

using namespace Protocol;

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP};
constexpr size_t kAltStackSize = 64 * 1024;
// How long the crashed process waits for the handler program to dump,
// report and answer. The program's upload gives up well before this.
constexpr int kReportWaitMs = 8000;

std::atomic<int> g_socket{-1};
std::atomic<pid_t> g_helperPid{0};
std::atomic<pid_t> g_crashingThread{0};
std::atomic<bool> g_pathsReady{false};
char g_statePath[PATH_MAX];
char g_logPath[PATH_MAX];
char g_reason[kReasonSize];
std::atomic<bool> g_hasReason{false};

// --- async-signal-safe helpers -------------------------------------------

size_t textLength(const char *text)
{
    size_t n = 0;
    while (text[n])
        ++n;
    return n;
}

void appendText(char *buffer, size_t size, size_t &used, const char *text)
{
    for (; *text && used + 1 < size; ++text)
        buffer[used++] = *text;
    buffer[used] = '\0';
}

void appendNumber(char *buffer, size_t size, size_t &used, unsigned long long value, int base)
{
    char digits[32];
    int n = 0;
    do {
        const int digit = int(value % unsigned(base));
        digits[n++] = char(digit < 10 ? '0' + digit : 'a' + digit - 10);
        value /= unsigned(base);
    } while (value && n < int(sizeof digits));
    if (base == 16)
        appendText(buffer, size, used, "0x");
    while (n > 0 && used + 1 < size)
        buffer[used++] = digits[--n];
    buffer[used] = '\0';
}

void writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        data += written;
        size -= size_t(written);
    }
}

void writeStateFile(const char *state)
{
    if (!g_pathsReady.load())
        return;
    const int fd = ::open(g_statePath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    writeAll(fd, state, textLength(state));
    ::close(fd);
}

// One line appended to the run's log file, so that the log sent with the
// report (or read by a developer) says how the run ended.
void appendToLog(const char *line)
{
    if (!g_pathsReady.load())
        return;
    const int fd = ::open(g_logPath, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return;
    writeAll(fd, line, textLength(line));
    ::close(fd);
}

long monotonicMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return long(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// True when the handler program answered that the report is finished.
bool waitForReport(int socket)
{
    const long deadline = monotonicMs() + kReportWaitMs;
    for (;;) {
        const long remaining = deadline - monotonicMs();
        if (remaining <= 0)
            return false;
        pollfd entry{socket, POLLIN, 0};
        const int ready = ::poll(&entry, 1, int(remaining));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        DoneMessage answer;
        const ssize_t got = ::recv(socket, &answer, sizeof answer, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false; // the program is gone
        if (size_t(got) >= sizeof(Header) && answer.header.magic == kMagic &&
            answer.header.type == uint32_t(MessageType::Done))
            return true;
    }
}

void fillRegisters(CrashMessage &message, const ucontext_t *context)
{
#if defined(__x86_64__)
    if (!context)
        return;
    const greg_t *r = context->uc_mcontext.gregs;
    const int order[kRegisterCount] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                                       REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                       REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    for (int i = 0; i < kRegisterCount; ++i)
        message.registers[i] = uint64_t(r[order[i]]);
    message.flags = uint64_t(r[REG_EFL]);
    message.hasRegisters = 1;
#else
    // Other architectures: the program unwinds the crashing thread from its
    // live state, through the signal frame.
    (void)message;
    (void)context;
#endif
}

void report(int signal, const siginfo_t *info, const ucontext_t *context)
{
    writeStateFile(kStateCrashed);

    char line[kReasonSize + 160];
    size_t used = 0;
    line[0] = '\0';
    appendText(line, sizeof line, used, "Fatal signal ");
    appendNumber(line, sizeof line, used, unsigned(signal), 10);
    appendText(line, sizeof line, used, " (");
    appendText(line, sizeof line, used, signalName(signal));
    appendText(line, sizeof line, used, "), fault address ");
    appendNumber(line, sizeof line, used, info ? uintptr_t(info->si_addr) : 0, 16);
    if (g_hasReason.load()) {
        appendText(line, sizeof line, used, ": ");
        appendText(line, sizeof line, used, g_reason);
    }
    appendText(line, sizeof line, used, "\n");
    appendToLog(line);

    const int socket = g_socket.load();
    const pid_t helper = g_helperPid.load();
    if (socket >= 0 && helper > 0) {
        // Let the handler program trace this process (also where Yama
        // restricts tracing to descendants; it is our child, not our parent).
        ::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
        ::prctl(PR_SET_PTRACER, helper, 0, 0, 0);
        CrashMessage message;
        message.header.type = uint32_t(MessageType::Crash);
        message.header.length = uint32_t(sizeof message - sizeof message.header);
        message.threadId = pid_t(::syscall(SYS_gettid));
        message.signal = signal;
        message.code = info ? info->si_code : 0;
        message.faultAddress = info ? uint64_t(uintptr_t(info->si_addr)) : 0;
        fillRegisters(message, context);
        if (g_hasReason.load())
            std::memcpy(message.reason, g_reason, sizeof message.reason);
        message.reason[kReasonSize - 1] = '\0';
        const ssize_t sent = ::send(socket, &message, sizeof message, MSG_NOSIGNAL);
        if (sent == ssize_t(sizeof message) && waitForReport(socket))
            return;
    }
    appendToLog("The crash handler program did not answer; no crash report was sent\n");
}

void onFatalSignal(int signal, siginfo_t *info, void *context)
{
    const pid_t self = pid_t(::syscall(SYS_gettid));
    pid_t first = 0;
    if (!g_crashingThread.compare_exchange_strong(first, self)) {
        if (first == self)
            ::_exit(1); // a fault inside the report itself
        // Another thread is reporting; its exit ends this thread as well.
        for (;;)
            ::pause();
    }
    report(signal, info, static_cast<const ucontext_t *>(context));
    ::_exit(1);
}

void setReason(const char *prefix, const char *detail)
{
    size_t used = 0;
    g_reason[0] = '\0';
    appendText(g_reason, sizeof g_reason, used, prefix);
    if (detail)
        appendText(g_reason, sizeof g_reason, used, detail);
    g_hasReason.store(true);
}

// Not a signal handler: the terminate handler may look at the exception.
void onTerminate()
{
    if (std::exception_ptr current = std::current_exception()) {
        char typeName[200] = "unknown type";
        if (const std::type_info *type = abi::__cxa_current_exception_type()) {
            int status = 0;
            char *demangled = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
            std::strncpy(typeName, status == 0 && demangled ? demangled : type->name(), sizeof typeName - 1);
            std::free(demangled);
        }
        try {
            std::rethrow_exception(current);
        } catch (const std::exception &e) {
            char text[kReasonSize];
            size_t used = 0;
            text[0] = '\0';
            appendText(text, sizeof text, used, typeName);
            appendText(text, sizeof text, used, ": ");
            appendText(text, sizeof text, used, e.what());
            setReason("uncaught exception ", text);
        } catch (...) {
            setReason("uncaught exception ", typeName);
        }
    } else {
        setReason("std::terminate called without an exception", nullptr);
    }
    std::abort();
}

void onOutOfMemory()
{
    setReason("out of memory: operator new failed", nullptr);
    std::abort();
}

std::string programBeside(const std::string &folder)
{
    return folder + "/glint-crash-handler";
}

bool isExecutable(const std::string &path)
{
    return !path.empty() && ::access(path.c_str(), X_OK) == 0;
}

// $GLINT_CRASH_HANDLER, else the program beside the executable, else the
// build tree's copy.
std::string findProgram(const std::string &configured)
{
    if (const char *overridden = std::getenv("GLINT_CRASH_HANDLER"); overridden && *overridden)
        return overridden;
    if (!configured.empty())
        return configured;
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        self[length] = '\0';
        std::string folder(self);
        folder.erase(folder.rfind('/'));
        if (isExecutable(programBeside(folder)))
            return programBeside(folder);
    }
    return std::string(glint::kBinaryDir) + "/tools/crashhandler/glint-crash-handler";
}

bool copyPath(char *target, const std::string &path)
{
    if (path.size() >= PATH_MAX)
        return false;
    std::memcpy(target, path.c_str(), path.size() + 1);
    return true;
}

class CrashHandlerLinux : public ICrashHandler
{
public:
    ~CrashHandlerLinux() override { stop(); }

    void install() override
    {
        // The crashing thread may have no stack left (an overflow): the
        // handlers run on a stack of their own.
        void *stack =
            ::mmap(nullptr, kAltStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (stack != MAP_FAILED) {
            stack_t alternate{};
            alternate.ss_sp = stack;
            alternate.ss_size = kAltStackSize;
            ::sigaltstack(&alternate, nullptr);
        }
        struct sigaction action = {};
        action.sa_sigaction = onFatalSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        for (int signal : kFatalSignals)
            ::sigaction(signal, &action, nullptr);
        std::set_terminate(onTerminate);
        std::set_new_handler(onOutOfMemory);
    }

    bool start(const HandlerSettings &settings, std::string &error) override
    {
        if (!copyPath(g_statePath, settings.stateDir + "/" + kStateFileName) ||
            !copyPath(g_logPath, settings.logPath)) {
            error = "path too long";
            return false;
        }
        g_pathsReady.store(true);
        const std::string program = findProgram(settings.handlerProgram);
        int sockets[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
            error = std::string("socketpair: ") + std::strerror(errno);
            return false;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // dup2 onto descriptor 3 clears close-on-exec for the program's end.
        posix_spawn_file_actions_adddup2(&actions, sockets[1], 3);
        char socketArgument[] = "3";
        char option[] = "--socket";
        std::string programCopy = program;
        char *argv[] = {programCopy.data(), option, socketArgument, nullptr};
        pid_t pid = 0;
        const int result = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(sockets[1]);
        if (result != 0) {
            ::close(sockets[0]);
            error = program + ": " + std::strerror(result);
            return false;
        }
        g_helperPid.store(pid);
        g_socket.store(sockets[0]);
        sendSetting(SettingKey::StateDir, settings.stateDir);
        sendSetting(SettingKey::LogPath, settings.logPath);
        sendSetting(SettingKey::UploadUrl, settings.uploadUrl);
        sendSetting(SettingKey::UserId, settings.userId);
        return true;
    }

    void setDescription(const std::string &description) override
    {
        sendSetting(SettingKey::Description, description);
    }

    void stop() override
    {
        const int socket = g_socket.exchange(-1);
        if (socket < 0)
            return;
        Header goodbye;
        goodbye.type = uint32_t(MessageType::Goodbye);
        ::send(socket, &goodbye, sizeof goodbye, MSG_NOSIGNAL | MSG_DONTWAIT);
        ::close(socket);
    }

private:
    static void sendSetting(SettingKey key, const std::string &value)
    {
        const int socket = g_socket.load();
        if (socket < 0)
            return;
        const std::string packet = encodeSetting(key, value);
        // Never block the application on a stuck program.
        ::send(socket, packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
};

} // namespace

std::shared_ptr<ICrashHandler> createPlatformCrashHandler()
{
    static std::weak_ptr<ICrashHandler> current;
    if (auto existing = current.lock())
        return existing;
    auto handler = std::make_shared<CrashHandlerLinux>();
    current = handler;
    return handler;
}

} // namespace CrashReport
