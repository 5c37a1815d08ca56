#include "lensserverprocess.h"

#include <QDebug>
#include <QProcess>

namespace {

bool run(const QString &program, const QStringList &arguments, QByteArray *out)
{
    QProcess process;
    process.start(program, arguments);
    const bool ok = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit &&
                    process.exitCode() == 0;
    *out = process.readAllStandardOutput();
    if (!ok)
        qWarning() << program << "failed:" << process.readAllStandardError();
    return ok;
}

} // namespace

LensServerProcess::LensServerProcess()
{
    m_publicKey = runPacker({QStringLiteral("keygen"), keyPath()}).trimmed();
}

QString LensServerProcess::runPacker(const QStringList &arguments)
{
    QByteArray out;
    return run(QStringLiteral(GLINT_TEST_PACKER), arguments, &out) ? QString::fromUtf8(out) : QString();
}

bool LensServerProcess::import(const QStringList &lensFolders, bool featured)
{
    QStringList arguments{QStringLiteral("import"), QStringLiteral("--data-dir"), dataDir(),
                          QStringLiteral("--key"), keyPath()};
    if (featured)
        arguments << QStringLiteral("--featured");
    QByteArray out;
    return run(serverPath(), arguments + lensFolders, &out);
}

bool LensServerProcess::start(const QStringList &extraArguments)
{
    std::vector<std::string> arguments{"--data-dir", dataDir().toStdString(), "--key",
                                       keyPath().toStdString(), "--no-bundled-import"};
    if (m_port != 0)
        arguments.insert(arguments.end(), {"--port", std::to_string(m_port)});
    for (const QString &argument : extraArguments)
        arguments.push_back(argument.toStdString());
    m_server = std::make_unique<ServerProcess>(arguments);
    if (!m_server->started()) {
        qWarning() << "server did not start:" << QString::fromStdString(m_server->output());
        return false;
    }
    m_port = m_server->port();
    m_baseUrl = QString::fromStdString(m_server->url()) + QStringLiteral("/vc/v1");
    return true;
}
