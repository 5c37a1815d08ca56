#include "lensserverprocess.h"

#include <QDeadlineTimer>
#include <QDebug>
#include <QRegularExpression>

LensServerProcess::LensServerProcess()
{
    const QString out = runPacker({QStringLiteral("keygen"), keyPath()});
    m_publicKey = out.trimmed();
    m_keyReady = m_publicKey.size() == 160;
}

LensServerProcess::~LensServerProcess()
{
    stop();
}

QString LensServerProcess::packerPath()
{
    return QStringLiteral(GLINT_TEST_PACKER);
}

QString LensServerProcess::serverPath()
{
    return QStringLiteral(GLINT_TEST_SERVER);
}

QString LensServerProcess::runPacker(const QStringList &arguments)
{
    QProcess packer;
    packer.start(packerPath(), arguments);
    if (!packer.waitForFinished(60000) || packer.exitStatus() != QProcess::NormalExit ||
        packer.exitCode() != 0)
        return QString();
    return QString::fromUtf8(packer.readAllStandardOutput());
}

bool LensServerProcess::import(const QStringList &lensFolders, bool featured)
{
    QStringList arguments{QStringLiteral("import"), QStringLiteral("--data-dir"), dataDir(),
                          QStringLiteral("--key"), keyPath()};
    if (featured)
        arguments << QStringLiteral("--featured");
    arguments << lensFolders;
    QProcess importer;
    importer.start(serverPath(), arguments);
    const bool ok = importer.waitForFinished(60000) && importer.exitStatus() == QProcess::NormalExit &&
                    importer.exitCode() == 0;
    if (!ok)
        qWarning() << "import failed:" << importer.readAllStandardError();
    return ok;
}

bool LensServerProcess::start(const QStringList &extraArguments)
{
    QStringList arguments{
        QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--data-dir"),         dataDir(),
        QStringLiteral("--key"),  keyPath(),           QStringLiteral("--no-bundled-import")};
    // A fixed port after a restart keeps the addresses handed out valid.
    if (m_port != 0)
        arguments[1] = QString::number(m_port);
    arguments << extraArguments;
    m_server.setProcessChannelMode(QProcess::SeparateChannels);
    m_server.start(serverPath(), arguments);
    if (!m_server.waitForStarted(10000))
        return false;
    const QRegularExpression listening(QStringLiteral("Listening on (\\S+)/vc/v1 \\(port (\\d+)\\)"));
    QByteArray out;
    QDeadlineTimer deadline(20000);
    while (!deadline.hasExpired() && m_server.state() == QProcess::Running) {
        m_server.waitForReadyRead(200);
        out += m_server.readAllStandardOutput();
        const auto match = listening.match(QString::fromUtf8(out));
        if (match.hasMatch()) {
            m_port = match.captured(2).toInt();
            m_baseUrl = match.captured(1) + QStringLiteral("/vc/v1");
            return true;
        }
    }
    qWarning() << "server did not start:" << out << m_server.readAllStandardError();
    return false;
}

void LensServerProcess::stop()
{
    if (m_server.state() == QProcess::NotRunning)
        return;
    m_server.terminate();
    if (!m_server.waitForFinished(10000)) {
        m_server.kill();
        m_server.waitForFinished(5000);
    }
}
