#pragma once

#include "processsnapshot.h"

#include <string>
#include <vector>

namespace CrashHandler {

// Unwinds the stopped threads of a process with elfutils (libdwfl) and
// symbolises their frames; also lists the loaded modules with build ids.
// The crashing thread is unwound from the registers it had at the fault
// (snapshot.registers), the others from their current registers.
class StackWalker
{
public:
    static constexpr int kMaxFrames = 128;

    // Fills snapshot.threads (the crashed thread first) and snapshot.modules.
    // False with a reason when the process could not be read at all.
    static bool walk(ProcessSnapshot &snapshot, const std::vector<pid_t> &threads, std::string &error);
};

} // namespace CrashHandler
