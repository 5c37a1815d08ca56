#pragma once

#include "processsnapshot.h"

#include <string>

namespace CrashHandler {

// The crash dump as text: the fault, the crashing thread's registers, every
// thread's frames and the loaded modules with their build ids. The format
// is described in docs/crash-dumps.md.
class DumpWriter
{
public:
    static std::string write(const ProcessSnapshot &snapshot);
    static std::string signalName(int signal);
    static std::string codeName(int signal, int code);
};

} // namespace CrashHandler
