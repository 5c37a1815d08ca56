#pragma once

#include "virtualcamsystem.h"

#include <QObject>
#include <QString>

class QProcess;

namespace VCam {

// The interface's side of the camera set-up: tells what keeps the virtual
// camera from working and runs the one privileged step (pkexec and the fixed
// helper) without blocking the interface.
class VirtualCamSetupHelper : public QObject
{
    Q_OBJECT
public:
    explicit VirtualCamSetupHelper(const QString &applicationDir, QObject *parent = nullptr);

    VirtualCamSystem::Readiness readiness() const { return m_system.readiness(); }
    bool isRunning() const { return m_process != nullptr; }
    // Starts the privileged step; false (and nothing started) when it
    // cannot help or already runs.
    bool setUp();

signals:
    // The step has ended; ready tells whether the camera device now exists.
    void setUpFinished(bool ready, const QString &error);

private:
    void onFinished(int exitCode, bool crashed);

    VirtualCamSystem m_system;
    QProcess *m_process = nullptr;
};

} // namespace VCam
