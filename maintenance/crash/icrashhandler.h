#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace CrashReport {

// A dump the platform handler has written: in memory when it fits the
// reporter's buffer, otherwise on disk.
struct CapturedDump
{
    const char *data = nullptr;
    size_t size = 0;
    std::string path;
};

// What the platform handler needs to produce a report. Plain C++ so that the
// handlers build without Qt.
struct HandlerSettings
{
    std::string stateDir;       // the crash state file and the last dump
    std::string logPath;        // the run's log file
    std::string uploadUrl;      // where the report goes
    std::string userId;         // the installation's identifier
    std::string handlerProgram; // the crash handler program (Linux)
    size_t dumpBufferSize = 0;  // dumps up to this size go from memory
    // Uploads a captured dump from inside the crashed process (Windows);
    // true when the report was sent.
    std::function<bool(const CapturedDump &)> uploadInProcess;
};

// The platform's crash handler. One per process: install() puts the
// process-wide handlers in place, start() connects them to the reporting
// side once the paths and the upload address are known.
class ICrashHandler
{
public:
    virtual ~ICrashHandler() = default;

    virtual void install() = 0;
    virtual bool start(const HandlerSettings &settings, std::string &error) = 0;
    // The system report sent with a crash; may be updated while running.
    virtual void setDescription(const std::string &description) = 0;
    // Clean exit: nothing more to report.
    virtual void stop() = 0;
};

// The handler of this platform, already registered as the process's one.
std::shared_ptr<ICrashHandler> createPlatformCrashHandler();

} // namespace CrashReport
