// Links the Windows crash handler into a program for the cross-compile check.
#include "icrashhandler.h"

int main()
{
    auto handler = CrashReport::createPlatformCrashHandler();
    handler->install();
    CrashReport::HandlerSettings settings;
    settings.dumpBufferSize = 1 << 20;
    settings.uploadInProcess = [](const CrashReport::CapturedDump &dump) { return dump.size > 0; };
    std::string error;
    return handler->start(settings, error) ? 0 : 1;
}
