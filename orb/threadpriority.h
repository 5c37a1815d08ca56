#pragma once

namespace Orb {

// Scheduling hints for the library's own worker threads.
class ThreadPriority
{
public:
    // Lets the calling thread yield the cores to the frame path: background
    // work such as searching for new faces must not stall rendering when
    // the cores are busy. Returns whether the system accepted it.
    static bool lowerCurrentThread();
};

} // namespace Orb
