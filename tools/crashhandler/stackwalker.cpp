#include "stackwalker.h"

#include <cstring>
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <fstream>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>

namespace CrashHandler {

namespace {

constexpr int kRegisterCount = 17; // x86-64 DWARF registers 0-16

struct WalkState
{
    pid_t pid = 0;
    std::vector<pid_t> order; // crashed thread first
    size_t next = 0;
    const ProcessSnapshot *snapshot = nullptr;
};

std::string demangle(const char *name)
{
    if (!name)
        return {};
    int status = 0;
    char *plain = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::string result = status == 0 && plain ? plain : name;
    std::free(plain);
    return result;
}

std::string threadName(pid_t pid, pid_t tid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name.substr(0, 64);
}

pid_t nextThread(Dwfl *, void *arg, void **threadArg)
{
    auto *state = static_cast<WalkState *>(arg);
    if (state->next >= state->order.size())
        return 0;
    *threadArg = arg;
    return state->order[state->next++];
}

bool getThread(Dwfl *, pid_t tid, void *arg, void **threadArg)
{
    auto *state = static_cast<WalkState *>(arg);
    for (pid_t known : state->order) {
        if (known == tid) {
            *threadArg = arg;
            return true;
        }
    }
    return false;
}

bool readMemory(Dwfl *, Dwarf_Addr address, Dwarf_Word *result, void *arg)
{
    auto *state = static_cast<WalkState *>(arg);
    iovec local{result, sizeof *result};
    iovec remote{reinterpret_cast<void *>(address), sizeof *result};
    return ::process_vm_readv(state->pid, &local, 1, &remote, 1, 0) == ssize_t(sizeof *result);
}

bool setInitialRegisters(Dwfl_Thread *thread, void *threadArg)
{
    auto *state = static_cast<WalkState *>(threadArg);
    const pid_t tid = dwfl_thread_tid(thread);
    Dwarf_Word registers[kRegisterCount];
    const ProcessSnapshot &snapshot = *state->snapshot;
    if (tid == snapshot.crashedThread && snapshot.registers.size() == size_t(kRegisterCount)) {
        for (int i = 0; i < kRegisterCount; ++i)
            registers[i] = snapshot.registers[size_t(i)];
    } else {
        user_regs_struct r{};
        if (::ptrace(PTRACE_GETREGS, tid, nullptr, &r) != 0)
            return false;
        const unsigned long long values[kRegisterCount] = {r.rax, r.rdx, r.rcx, r.rbx, r.rsi, r.rdi,
                                                           r.rbp, r.rsp, r.r8,  r.r9,  r.r10, r.r11,
                                                           r.r12, r.r13, r.r14, r.r15, r.rip};
        for (int i = 0; i < kRegisterCount; ++i)
            registers[i] = values[i];
    }
    if (!dwfl_thread_state_registers(thread, 0, kRegisterCount, registers))
        return false;
    dwfl_thread_state_register_pc(thread, registers[16]);
    return true;
}

// The attacher owns the threads' tracing; nothing to undo here.
void detachProcess(Dwfl *, void *) {}
void detachThread(Dwfl_Thread *, void *) {}

StackFrame symbolise(Dwfl *dwfl, Dwarf_Addr pc, bool activation)
{
    StackFrame frame;
    frame.pc = pc;
    // A return address points after the call: look up the call itself.
    frame.lookup = activation || pc == 0 ? pc : pc - 1;
    Dwfl_Module *module = dwfl_addrmodule(dwfl, frame.lookup);
    if (!module)
        return frame;
    const char *mainFile = nullptr;
    const char *name =
        dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, &mainFile, nullptr);
    frame.module = mainFile ? mainFile : (name ? name : "");
    Dwarf_Addr bias = 0;
    if (dwfl_module_getelf(module, &bias))
        frame.moduleAddress = frame.lookup - bias;
    GElf_Off offset = 0;
    GElf_Sym symbol;
    const char *symbolName =
        dwfl_module_addrinfo(module, frame.lookup, &offset, &symbol, nullptr, nullptr, nullptr);
    frame.function = demangle(symbolName);
    frame.functionOffset = offset;
    if (Dwfl_Line *line = dwfl_module_getsrc(module, frame.lookup)) {
        int lineNumber = 0;
        if (const char *file = dwfl_lineinfo(line, nullptr, &lineNumber, nullptr, nullptr, nullptr)) {
            frame.sourceFile = file;
            frame.line = lineNumber;
        }
    }
    return frame;
}

struct ThreadWalk
{
    Dwfl *dwfl;
    ThreadTrace *trace;
};

int onFrame(Dwfl_Frame *state, void *arg)
{
    auto *walk = static_cast<ThreadWalk *>(arg);
    Dwarf_Addr pc = 0;
    bool activation = false;
    if (!dwfl_frame_pc(state, &pc, &activation))
        return DWARF_CB_ABORT;
    walk->trace->frames.push_back(symbolise(walk->dwfl, pc, activation));
    if (walk->trace->frames.size() >= size_t(StackWalker::kMaxFrames)) {
        walk->trace->stopReason = "frame limit reached";
        return DWARF_CB_ABORT;
    }
    return DWARF_CB_OK;
}

struct ThreadsWalk
{
    Dwfl *dwfl;
    ProcessSnapshot *snapshot;
};

int onThread(Dwfl_Thread *thread, void *arg)
{
    auto *walk = static_cast<ThreadsWalk *>(arg);
    ThreadTrace trace;
    trace.tid = dwfl_thread_tid(thread);
    trace.name = threadName(walk->snapshot->pid, trace.tid);
    trace.crashed = trace.tid == walk->snapshot->crashedThread;
    ThreadWalk frames{walk->dwfl, &trace};
    const int result = dwfl_thread_getframes(thread, onFrame, &frames);
    if (result == -1 && trace.stopReason.empty())
        trace.stopReason = dwfl_errmsg(-1);
    walk->snapshot->threads.push_back(std::move(trace));
    return DWARF_CB_OK;
}

int onModule(Dwfl_Module *module, void **, const char *name, Dwarf_Addr start, void *arg)
{
    auto *modules = static_cast<std::vector<LoadedModule> *>(arg);
    LoadedModule entry;
    Dwarf_Addr end = 0;
    const char *mainFile = nullptr;
    dwfl_module_info(module, nullptr, nullptr, &end, nullptr, nullptr, &mainFile, nullptr);
    entry.start = start;
    entry.end = end;
    entry.path = mainFile ? mainFile : (name ? name : "");
    Dwarf_Addr bias = 0;
    dwfl_module_getelf(module, &bias);
    const unsigned char *bits = nullptr;
    GElf_Addr vaddr = 0;
    const int length = dwfl_module_build_id(module, &bits, &vaddr);
    static const char hex[] = "0123456789abcdef";
    for (int i = 0; i < length; ++i) {
        entry.buildId.push_back(hex[bits[i] >> 4]);
        entry.buildId.push_back(hex[bits[i] & 15]);
    }
    modules->push_back(std::move(entry));
    return DWARF_CB_OK;
}

} // namespace

bool StackWalker::walk(ProcessSnapshot &snapshot, const std::vector<pid_t> &threads, std::string &error)
{
    static char *debuginfoPath = nullptr;
    static const Dwfl_Callbacks callbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr,
                                             &debuginfoPath};
    Dwfl *dwfl = dwfl_begin(&callbacks);
    if (!dwfl) {
        error = dwfl_errmsg(-1);
        return false;
    }
    dwfl_report_begin(dwfl);
    const int reported = dwfl_linux_proc_report(dwfl, snapshot.pid);
    dwfl_report_end(dwfl, nullptr, nullptr);
    if (reported != 0) {
        error = "the modules of the process could not be read: " +
                std::string(reported > 0 ? std::strerror(reported) : dwfl_errmsg(-1));
        dwfl_end(dwfl);
        return false;
    }
    dwfl_getmodules(dwfl, onModule, &snapshot.modules, 0);

    WalkState state;
    state.pid = snapshot.pid;
    state.snapshot = &snapshot;
    for (pid_t tid : threads) {
        if (tid == snapshot.crashedThread)
            state.order.insert(state.order.begin(), tid);
        else
            state.order.push_back(tid);
    }
    static const Dwfl_Thread_Callbacks threadCallbacks = {nextThread,          getThread,     readMemory,
                                                          setInitialRegisters, detachProcess, detachThread};
    if (!dwfl_attach_state(dwfl, nullptr, snapshot.pid, &threadCallbacks, &state)) {
        error = std::string("unwinding is not possible: ") + dwfl_errmsg(-1);
        dwfl_end(dwfl);
        return false;
    }
    ThreadsWalk walk{dwfl, &snapshot};
    dwfl_getthreads(dwfl, onThread, &walk);
    dwfl_end(dwfl);
    return true;
}

} // namespace CrashHandler
