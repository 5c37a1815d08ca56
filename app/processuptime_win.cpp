#include "processuptime.h"

#include <windows.h>

namespace VCam {

qint64 ProcessUptime::milliseconds()
{
    FILETIME created, exited, kernel, user, now;
    if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user))
        return -1;
    GetSystemTimeAsFileTime(&now);
    auto value = [](const FILETIME &t) { return (qint64(t.dwHighDateTime) << 32) | t.dwLowDateTime; };
    return (value(now) - value(created)) / 10000; // 100 ns units
}

} // namespace VCam
