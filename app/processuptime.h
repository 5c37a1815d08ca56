#pragma once

#include <QtGlobal>

namespace VCam {

// Time since this process was created, as the system counts it: loading the
// program and its libraries is included, which a clock started in main()
// would miss.
class ProcessUptime
{
public:
    // Milliseconds since the process was created, or -1 when the system
    // does not say.
    static qint64 milliseconds();
};

} // namespace VCam
