#pragma once

#include <QString>
#include <memory>

namespace VCam {

// Lets one instance of the application run per user session. The keys are
// SHA-1 digests of the application name; how the guard is held depends on
// the system: on Windows a small shared memory segment under a system
// semaphore (both vanish with the process), on Linux an flock on a file in
// the runtime folder, which the kernel releases when the process ends,
// however it ends.
class SingleInstanceGuard
{
public:
    explicit SingleInstanceGuard(const QString &key);
    ~SingleInstanceGuard();
    SingleInstanceGuard(const SingleInstanceGuard &) = delete;
    SingleInstanceGuard &operator=(const SingleInstanceGuard &) = delete;

    // True when this process now holds the guard, false when another does.
    bool tryToRun();
    void release();

    static QString sharedMemoryKey(const QString &key);
    static QString semaphoreKey(const QString &key);

private:
    struct Platform;
    QString m_key;
    std::unique_ptr<Platform> m_platform;
};

} // namespace VCam
