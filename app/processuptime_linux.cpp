#include "processuptime.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <ctime>
#include <unistd.h>

namespace VCam {

qint64 ProcessUptime::milliseconds()
{
    QFile file(QStringLiteral("/proc/self/stat"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray stat = file.read(4096);
    // The fields after the command name (which may hold spaces and
    // parentheses) start with the state, the third field; the start time,
    // in clock ticks after boot, is the 22nd.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    bool ok = false;
    const qint64 startTicks = fields.value(19).toLongLong(&ok);
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    timespec now{};
    if (!ok || ticksPerSecond <= 0 || clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        return -1;
    const qint64 nowMs = qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    return nowMs - startTicks * 1000 / ticksPerSecond;
}

} // namespace VCam
