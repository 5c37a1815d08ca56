#include "singleinstanceguard.h"

#include <QDir>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcInstanceGuard, "glint.app.instance")

namespace VCam {

// An exclusive flock on "<runtime folder>/<key>.lock". The kernel drops the
// lock with the last descriptor, so a killed or crashed instance never
// leaves anything that keeps the next start out. The file itself stays:
// removing it could let two instances lock two different files.
struct SingleInstanceGuard::Platform
{
    int fd = -1;
};

SingleInstanceGuard::SingleInstanceGuard(const QString &key) : m_key(key), m_platform(new Platform) {}

SingleInstanceGuard::~SingleInstanceGuard()
{
    release();
}

bool SingleInstanceGuard::tryToRun()
{
    if (m_platform->fd >= 0)
        return true;
    // Qt creates the runtime folder (mode 0700) when XDG_RUNTIME_DIR is unset.
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    const QString path = QDir(folder).filePath(sharedMemoryKey(m_key) + QStringLiteral(".lock"));
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        // Refusing here would lock the user out for good; run unguarded.
        qCWarning(lcInstanceGuard).noquote() << "Can't open the instance lock" << path
                                             << "Reason:" << QString::fromLocal8Bit(std::strerror(errno));
        return true;
    }
    int result;
    while ((result = ::flock(fd, LOCK_EX | LOCK_NB)) < 0 && errno == EINTR) {
    }
    if (result < 0) {
        const int error = errno;
        ::close(fd);
        if (error == EWOULDBLOCK)
            return false;
        qCWarning(lcInstanceGuard).noquote()
            << "Can't lock" << path << "Reason:" << QString::fromLocal8Bit(std::strerror(error));
        return true;
    }
    m_platform->fd = fd;
    return true;
}

void SingleInstanceGuard::release()
{
    if (m_platform->fd < 0)
        return;
    ::close(m_platform->fd); // drops the lock
    m_platform->fd = -1;
}

} // namespace VCam
