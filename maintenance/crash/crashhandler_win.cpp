// The Windows crash handler: every failure path (exception filters, the C
// run-time's handlers, signals, terminate) ends in one report routine that
// writes a minidump through dbghelp, hands it to the reporter's upload and
// terminates the process with exit code 1.
#include "crashprotocol.h"
#include "icrashhandler.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

// clang-format off
#include <windows.h> // before dbghelp.h, which needs its types
#include <dbghelp.h>
// clang-format on

namespace CrashReport {

namespace {

using MiniDumpWriteDumpFunction = BOOL(WINAPI *)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE,
                                                 PMINIDUMP_EXCEPTION_INFORMATION,
                                                 PMINIDUMP_USER_STREAM_INFORMATION,
                                                 PMINIDUMP_CALLBACK_INFORMATION);

class CrashHandlerWin;
CrashHandlerWin *g_handler = nullptr;

// Exception codes that end the process at once.
bool isFatalCode(DWORD code)
{
    switch (code) {
    case 0xC0000005: // access violation
    case 0xC0000006: // in-page error
    case 0xC0000008: // invalid handle
    case 0xC000001D: // illegal instruction
    case 0xC0000025: // non-continuable exception
    case 0xC0000026: // invalid disposition
    case 0x80000001: // guard page
    case 0x80000002: // datatype misalignment
    case 0x80000003: // breakpoint
    case 0x80000004: // single step
    case 0xC00000FD: // stack overflow
    case 0xC000013A: // console control-C exit
        return true;
    default:
        // The floating-point and integer faults.
        return code >= 0xC000008C && code <= 0xC0000096;
    }
}

// Non-fatal exceptions that are still reported, unless they are part of
// normal operation (debugger output, thread naming, C++ throws, small codes).
bool isReportedNonFatal(const EXCEPTION_RECORD &record)
{
    if (record.ExceptionFlags == 0)
        return false;
    switch (record.ExceptionCode) {
    case 0x40010006: // debugger output
    case 0x4001000A: // debugger output (wide)
    case 0x406D1388: // thread naming
    case 0xC0000008:
    case 0xE06D7363: // C++ exception
        return false;
    default:
        return record.ExceptionCode >= 4097;
    }
}

class CrashHandlerWin : public ICrashHandler
{
public:
    void install() override
    {
        g_handler = this;
        ::SetUnhandledExceptionFilter(onUnhandledException);
        ::AddVectoredExceptionHandler(1, onVectoredException);
        _set_purecall_handler(onPureCall);
        std::set_new_handler(onOutOfMemory);
        _set_invalid_parameter_handler(onInvalidParameter);
        // No Windows Error Reporting dialog on abort: we report ourselves.
        _set_abort_behavior(0, _CALL_REPORTFAULT);
        std::signal(SIGABRT, onAbortSignal);
        std::signal(SIGINT, onAbortSignal);
        std::signal(SIGILL, onAbortSignal);
        std::signal(SIGTERM, onFaultSignal);
        std::signal(SIGFPE, onFaultSignal);
        std::signal(SIGSEGV, onFaultSignal);
        // std::set_unexpected is gone from C++17; terminate covers it.
        std::set_terminate(onTerminate);
    }

    bool start(const HandlerSettings &settings, std::string &) override
    {
        m_settings = settings;
        m_buffer.resize(settings.dumpBufferSize);
        wchar_t folder[MAX_PATH];
        wchar_t file[MAX_PATH];
        if (::GetTempPathW(MAX_PATH, folder) && ::GetTempFileNameW(folder, L"gcd", 0, file))
            m_dumpPath = file;
        const std::wstring state = widen(settings.stateDir + "\\" + Protocol::kStateFileName);
        m_statePath = state;
        return true;
    }

    void setDescription(const std::string &) override {}
    void stop() override { g_handler = nullptr; }

    // Capture, dump, upload, terminate. Runs once; a second crash while
    // reporting only waits for the first one's end.
    void report(EXCEPTION_POINTERS *pointers)
    {
        if (m_reporting.exchange(true)) {
            // The report itself failed: end now rather than wait for ourselves.
            if (m_reportingThread.load() == ::GetCurrentThreadId())
                ::TerminateProcess(::GetCurrentProcess(), 1);
            ::Sleep(INFINITE); // another thread reports; its end ends this one
            return;
        }
        m_reportingThread.store(::GetCurrentThreadId());
        writeState(Protocol::kStateCrashed);
        CONTEXT context{};
        EXCEPTION_RECORD record{};
        EXCEPTION_POINTERS captured{&record, &context};
        if (!pointers) {
            ::RtlCaptureContext(&context);
            record.ExceptionCode = 0xE0000001; // reported without an exception
            record.ExceptionAddress = reinterpret_cast<void *>(context.Rip);
            pointers = &captured;
        }
        CapturedDump dump;
        const bool written = writeDump(pointers, dump);
        const bool sent = written && m_settings.uploadInProcess && m_settings.uploadInProcess(dump);
        writeState(sent ? Protocol::kStateSent : Protocol::kStateNotSent);
        if (m_dumpFile != INVALID_HANDLE_VALUE)
            ::CloseHandle(m_dumpFile); // delete-on-close removes it
        ::TerminateProcess(::GetCurrentProcess(), 1);
    }

private:
    static std::wstring widen(const std::string &text)
    {
        const int length = ::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
        std::wstring wide(length > 0 ? size_t(length) : 0, L'\0');
        if (length > 0)
            ::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide.data(), length);
        if (!wide.empty())
            wide.pop_back();
        return wide;
    }

    void writeState(const char *state)
    {
        if (m_statePath.empty())
            return;
        HANDLE file = ::CreateFileW(m_statePath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return;
        DWORD written = 0;
        ::WriteFile(file, state, DWORD(std::strlen(state)), &written, nullptr);
        ::CloseHandle(file);
    }

    bool loadDumpFunction()
    {
        // Looked up once per process: a second crash does not load it again.
        if (m_dumpFunctionLoaded)
            return m_writeDump != nullptr;
        m_dumpFunctionLoaded = true;
        if (HMODULE library = ::LoadLibraryW(L"dbghelp.dll"))
            m_writeDump = reinterpret_cast<MiniDumpWriteDumpFunction>(
                reinterpret_cast<void (*)()>(::GetProcAddress(library, "MiniDumpWriteDump")));
        return m_writeDump != nullptr;
    }

    bool writeDump(EXCEPTION_POINTERS *pointers, CapturedDump &dump)
    {
        if (!loadDumpFunction() || m_dumpPath.empty())
            return false;
        // The reporter may read the file from its path while this handle
        // keeps it alive; it disappears when the handle is closed.
        m_dumpFile = ::CreateFileW(m_dumpPath.c_str(), GENERIC_READ | GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY |
                                       FILE_FLAG_DELETE_ON_CLOSE,
                                   nullptr);
        if (m_dumpFile == INVALID_HANDLE_VALUE)
            return false;
        MINIDUMP_EXCEPTION_INFORMATION information{};
        information.ThreadId = ::GetCurrentThreadId();
        information.ExceptionPointers = pointers;
        information.ClientPointers = FALSE;
        if (!m_writeDump(::GetCurrentProcess(), ::GetCurrentProcessId(), m_dumpFile, MiniDumpNormal,
                         &information, nullptr, nullptr))
            return false;
        LARGE_INTEGER size{};
        ::GetFileSizeEx(m_dumpFile, &size);
        if (size.QuadPart > 0 && size_t(size.QuadPart) <= m_buffer.size()) {
            LARGE_INTEGER start{};
            DWORD read = 0;
            ::SetFilePointerEx(m_dumpFile, start, nullptr, FILE_BEGIN);
            if (::ReadFile(m_dumpFile, m_buffer.data(), DWORD(size.QuadPart), &read, nullptr) &&
                read == DWORD(size.QuadPart)) {
                dump.data = m_buffer.data();
                dump.size = read;
                return true;
            }
        }
        const int length =
            ::WideCharToMultiByte(CP_UTF8, 0, m_dumpPath.c_str(), -1, nullptr, 0, nullptr, nullptr);
        std::string path(length > 0 ? size_t(length) : 0, '\0');
        if (length > 0)
            ::WideCharToMultiByte(CP_UTF8, 0, m_dumpPath.c_str(), -1, path.data(), length, nullptr, nullptr);
        if (!path.empty())
            path.pop_back();
        dump.path = path;
        return true;
    }

    static LONG WINAPI onUnhandledException(EXCEPTION_POINTERS *pointers)
    {
        if (g_handler)
            g_handler->report(pointers);
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static LONG WINAPI onVectoredException(EXCEPTION_POINTERS *pointers)
    {
        const EXCEPTION_RECORD &record = *pointers->ExceptionRecord;
        if (g_handler && isFatalCode(record.ExceptionCode))
            g_handler->report(pointers); // terminates
        else if (g_handler && isReportedNonFatal(record))
            reportWithoutTerminating(pointers);
        return EXCEPTION_CONTINUE_SEARCH;
    }

    // Non-fatal exceptions get a dump and an upload, and the program goes on.
    static void reportWithoutTerminating(EXCEPTION_POINTERS *pointers)
    {
        CapturedDump dump;
        if (g_handler->writeDump(pointers, dump) && g_handler->m_settings.uploadInProcess)
            g_handler->m_settings.uploadInProcess(dump);
        if (g_handler->m_dumpFile != INVALID_HANDLE_VALUE) {
            ::CloseHandle(g_handler->m_dumpFile);
            g_handler->m_dumpFile = INVALID_HANDLE_VALUE;
        }
    }

    static void reportHere()
    {
        if (g_handler)
            g_handler->report(nullptr);
        ::TerminateProcess(::GetCurrentProcess(), 1);
    }

    static void onPureCall() { reportHere(); }
    static void onOutOfMemory() { reportHere(); }
    static void onInvalidParameter(const wchar_t *, const wchar_t *, const wchar_t *, unsigned, uintptr_t)
    {
        reportHere();
    }
    static void onAbortSignal(int) { reportHere(); }
    static void onFaultSignal(int) { reportHere(); }
    static void onTerminate() { reportHere(); }

    HandlerSettings m_settings;
    std::vector<char> m_buffer;
    std::wstring m_dumpPath;
    std::wstring m_statePath;
    HANDLE m_dumpFile = INVALID_HANDLE_VALUE;
    MiniDumpWriteDumpFunction m_writeDump = nullptr;
    bool m_dumpFunctionLoaded = false;
    std::atomic<bool> m_reporting{false};
    std::atomic<DWORD> m_reportingThread{0};
};

} // namespace

std::shared_ptr<ICrashHandler> createPlatformCrashHandler()
{
    static std::weak_ptr<ICrashHandler> current;
    if (auto existing = current.lock())
        return existing;
    auto handler = std::make_shared<CrashHandlerWin>();
    current = handler;
    return handler;
}

} // namespace CrashReport
