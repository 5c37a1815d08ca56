#pragma once

#include <csignal>

// The POSIX signals the crash handlers catch, shared by the handlers in the
// application and the handler program that writes the dump.
namespace CrashReport {

// The name of a fatal signal the handlers catch; "signal" for any other.
// Safe inside a signal handler.
inline const char *signalName(int signal)
{
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    case SIGTRAP:
        return "SIGTRAP";
    default:
        return "signal";
    }
}

} // namespace CrashReport
