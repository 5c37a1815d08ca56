#include "dumpwriter.h"

#include <fatalsignals.h>
#include <csignal>
#include <cstdio>
#include <ctime>

namespace CrashHandler {

namespace {

std::string hex(uint64_t value, int width = 16)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%0*llx", width, static_cast<unsigned long long>(value));
    return text;
}

std::string shortHex(uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

// Keeps a value from the crashed process on one line of the dump.
std::string oneLine(const std::string &text)
{
    std::string out;
    for (char c : text)
        out.push_back(c == '\n' || c == '\r' ? ' ' : c);
    return out;
}

std::string baseName(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string timestamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

void writeFrame(std::string &out, size_t index, const StackFrame &frame)
{
    out += "#" + std::to_string(index) + (index < 10 ? "  " : " ") + hex(frame.pc) + " ";
    out += frame.module.empty() ? std::string("?") : baseName(frame.module);
    out += "+" + shortHex(frame.moduleAddress);
    if (!frame.function.empty())
        out += " " + oneLine(frame.function) + "+" + shortHex(frame.functionOffset);
    if (!frame.sourceFile.empty())
        out += " (" + oneLine(frame.sourceFile) + ":" + std::to_string(frame.line) + ")";
    out += "\n";
}

const char *const kRegisterNames[] = {"rax", "rdx", "rcx", "rbx", "rsi", "rdi", "rbp", "rsp", "r8",
                                      "r9",  "r10", "r11", "r12", "r13", "r14", "r15", "rip"};

} // namespace

std::string DumpWriter::signalName(int signal)
{
    const std::string name = CrashReport::signalName(signal);
    return name == "signal" ? "signal " + std::to_string(signal) : name;
}

std::string DumpWriter::codeName(int signal, int code)
{
    if (code == SI_USER)
        return "SI_USER";
    if (code == SI_TKILL)
        return "SI_TKILL";
    if (signal == SIGSEGV && code == SEGV_MAPERR)
        return "SEGV_MAPERR";
    if (signal == SIGSEGV && code == SEGV_ACCERR)
        return "SEGV_ACCERR";
    if (signal == SIGFPE && code == FPE_INTDIV)
        return "FPE_INTDIV";
    if (signal == SIGFPE && code == FPE_FLTDIV)
        return "FPE_FLTDIV";
    if (signal == SIGILL && code == ILL_ILLOPN)
        return "ILL_ILLOPN";
    if (signal == SIGBUS && code == BUS_ADRERR)
        return "BUS_ADRERR";
    return "";
}

std::string DumpWriter::write(const ProcessSnapshot &s)
{
    std::string out = "Glint Camera crash dump 1\n";
    out += "process: " + std::to_string(s.pid) + "\n";
    out += "executable: " + oneLine(s.executable) + "\n";
    out += "time: " + timestamp() + "\n";
    out += "signal: " + std::to_string(s.signal) + " " + signalName(s.signal) + "\n";
    out += "code: " + std::to_string(s.code) + " " + codeName(s.signal, s.code) + "\n";
    out += "fault address: " + hex(s.faultAddress) + "\n";
    out += "reason: " + (s.reason.empty() ? std::string("-") : oneLine(s.reason)) + "\n";
    out += "crashed thread: " + std::to_string(s.crashedThread) + "\n";
    out += "threads: " + std::to_string(s.threads.size()) + "\n";
    out += "modules: " + std::to_string(s.modules.size()) + "\n";

    out += "\nregisters:\n";
    for (size_t i = 0; i < s.registers.size() && i < std::size(kRegisterNames); ++i)
        out += std::string(kRegisterNames[i]) + " " + hex(s.registers[i]) + "\n";
    if (!s.registers.empty())
        out += "rflags " + hex(s.flags) + "\n";

    for (const ThreadTrace &thread : s.threads) {
        out += "\nthread " + std::to_string(thread.tid) + " \"" + oneLine(thread.name) + "\"" +
               (thread.crashed ? " crashed" : "") + ":\n";
        for (size_t i = 0; i < thread.frames.size(); ++i)
            writeFrame(out, i, thread.frames[i]);
        if (!thread.stopReason.empty())
            out += "unwinding stopped: " + oneLine(thread.stopReason) + "\n";
    }

    out += "\nmodules:\n";
    for (const LoadedModule &module : s.modules) {
        out += hex(module.start) + " " + hex(module.end) + " " +
               (module.buildId.empty() ? std::string("-") : module.buildId) + " " + oneLine(module.path) +
               "\n";
    }
    return out;
}

} // namespace CrashHandler
