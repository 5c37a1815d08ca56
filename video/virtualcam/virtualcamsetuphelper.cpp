#include "virtualcamsetuphelper.h"

#include "virtualcamoutputhelper.h"

#include <QProcess>
#include <QStringList>

namespace VCam {

namespace {

// pkexec answers 126 when the user dismisses the dialog and 127 when not
// authorised; the helper answers 3 when the driver is not installed.
QString failureText(int exitCode)
{
    switch (exitCode) {
    case 126:
    case 127:
        return QStringLiteral("The set-up was not authorised.");
    case 3:
        return QStringLiteral(
            "The v4l2loopback driver is not installed: install the package v4l2loopback-dkms.");
    default:
        return QStringLiteral("The set-up failed (exit code %1).").arg(exitCode);
    }
}

} // namespace

VirtualCamSetupHelper::VirtualCamSetupHelper(const QString &applicationDir, QObject *parent)
    : QObject(parent), m_system(applicationDir.toStdWString())
{}

bool VirtualCamSetupHelper::setUp()
{
    if (m_process)
        return false;
    const std::vector<std::string> command = m_system.setUpCommand();
    if (command.empty())
        return false;
    QStringList arguments;
    for (size_t i = 1; i < command.size(); ++i)
        arguments << QString::fromStdString(command[i]);
    m_process = new QProcess(this);
    m_process->setProcessChannelMode(QProcess::ForwardedChannels);
    connect(m_process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this](int exitCode, QProcess::ExitStatus status) {
                onFinished(exitCode, status != QProcess::NormalExit);
            });
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            onFinished(-1, true);
    });
    qCInfo(lcVirtualCam).noquote() << "Setting up the camera:" << QString::fromStdString(command[0])
                                   << arguments.join(' ');
    m_process->start(QString::fromStdString(command[0]), arguments);
    return true;
}

void VirtualCamSetupHelper::onFinished(int exitCode, bool crashed)
{
    if (!m_process)
        return;
    m_process->deleteLater();
    m_process = nullptr;
    const bool ready = m_system.readiness() == VirtualCamSystem::Readiness::Ready;
    QString error;
    if (!ready)
        error = crashed         ? QStringLiteral("The set-up could not be run.")
                : exitCode == 0 ? QStringLiteral("The set-up ran but no \"Glint Camera\" device appeared.")
                                : failureText(exitCode);
    if (!error.isEmpty())
        qCWarning(lcVirtualCam).noquote() << "Camera set-up failed. Reason:" << error;
    emit setUpFinished(ready, error);
}

} // namespace VCam
