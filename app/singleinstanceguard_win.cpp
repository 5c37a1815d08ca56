#include "singleinstanceguard.h"

#include <QSharedMemory>
#include <QSystemSemaphore>

namespace VCam {

// The first instance owns a small shared memory segment, later ones find
// it. Windows removes both named objects when their last holder ends.
struct SingleInstanceGuard::Platform
{
    explicit Platform(const QString &key)
        : sharedMemory(sharedMemoryKey(key)), semaphore(semaphoreKey(key), 1)
    {}

    bool isAnotherRunning()
    {
        if (sharedMemory.isAttached())
            return false;
        semaphore.acquire();
        const bool attached = sharedMemory.attach();
        if (attached)
            sharedMemory.detach();
        semaphore.release();
        return attached;
    }

    QSharedMemory sharedMemory;
    QSystemSemaphore semaphore;
};

SingleInstanceGuard::SingleInstanceGuard(const QString &key) : m_key(key), m_platform(new Platform(key)) {}

SingleInstanceGuard::~SingleInstanceGuard()
{
    release();
}

bool SingleInstanceGuard::tryToRun()
{
    if (m_platform->isAnotherRunning())
        return false;
    m_platform->semaphore.acquire();
    const bool created = m_platform->sharedMemory.create(8);
    m_platform->semaphore.release();
    if (!created) {
        release();
        return false;
    }
    return true;
}

void SingleInstanceGuard::release()
{
    m_platform->semaphore.acquire();
    if (m_platform->sharedMemory.isAttached())
        m_platform->sharedMemory.detach();
    m_platform->semaphore.release();
}

} // namespace VCam
