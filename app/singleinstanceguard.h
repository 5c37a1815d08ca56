#pragma once

#include <QSharedMemory>
#include <QString>
#include <QSystemSemaphore>

namespace VCam {

// Lets one instance of the application run per user session: the first
// instance owns a small shared memory segment, later ones find it.
class SingleInstanceGuard
{
public:
    explicit SingleInstanceGuard(const QString &key);
    ~SingleInstanceGuard();

    bool tryToRun();
    void release();

    static QString sharedMemoryKey(const QString &key);
    static QString semaphoreKey(const QString &key);

private:
    bool isAnotherRunning();

    QString m_key;
    QSharedMemory m_sharedMemory;
    QSystemSemaphore m_semaphore;
};

} // namespace VCam
