#include "threadpriority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Orb {

bool ThreadPriority::lowerCurrentThread()
{
    // On Linux the nice value belongs to the thread, addressed by its id.
    const auto thread = static_cast<id_t>(syscall(SYS_gettid));
    return setpriority(PRIO_PROCESS, thread, 10) == 0;
}

} // namespace Orb
