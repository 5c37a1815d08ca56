#include "threadpriority.h"

#include <windows.h>

namespace Orb {

bool ThreadPriority::lowerCurrentThread()
{
    return SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL) != 0;
}

} // namespace Orb
