#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace CrashHandler {

struct StackFrame
{
    uint64_t pc = 0;            // as unwound
    uint64_t lookup = 0;        // pc, or pc - 1 for return addresses
    std::string module;         // the module's file
    uint64_t moduleAddress = 0; // lookup as a file address of the module
    std::string function;       // demangled, empty when unknown
    uint64_t functionOffset = 0;
    std::string sourceFile;
    int line = 0;
};

struct ThreadTrace
{
    pid_t tid = 0;
    std::string name;
    bool crashed = false;
    std::vector<StackFrame> frames;
    std::string stopReason; // why unwinding ended early, when it did
};

struct LoadedModule
{
    uint64_t start = 0;
    uint64_t end = 0;
    std::string path;
    std::string buildId; // lower-case hex, empty when the module has none
};

// The crash as the dump tells it.
struct ProcessSnapshot
{
    pid_t pid = 0;
    std::string executable;
    int signal = 0;
    int code = 0;
    uint64_t faultAddress = 0;
    pid_t crashedThread = 0;
    std::string reason;
    std::vector<uint64_t> registers; // DWARF order; empty when unknown
    uint64_t flags = 0;
    std::vector<ThreadTrace> threads;
    std::vector<LoadedModule> modules;
};

} // namespace CrashHandler
