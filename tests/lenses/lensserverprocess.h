#pragma once

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// A real glint-lens-server on a free loopback port with a data folder and a
// signing key of its own, stopped when the object goes.
class LensServerProcess
{
public:
    LensServerProcess();
    ~LensServerProcess();

    bool isReady() const { return m_keyReady; }
    QString publicKey() const { return m_publicKey; }
    QString keyPath() const { return m_dir.filePath(QStringLiteral("key.pem")); }
    QString dataDir() const { return m_dir.filePath(QStringLiteral("data")); }

    // Packs, signs and registers lens folders (server must be stopped).
    bool import(const QStringList &lensFolders, bool featured = false);
    bool start(const QStringList &extraArguments = {});
    void stop();
    bool isRunning() const { return m_server.state() == QProcess::Running; }

    QString baseUrl() const { return m_baseUrl; } // ends in /vc/v1
    int port() const { return m_port; }

    static QString packerPath();
    static QString serverPath();
    // Runs the packer; its standard output, or a null string when it failed.
    static QString runPacker(const QStringList &arguments);

private:
    QTemporaryDir m_dir;
    QProcess m_server;
    QString m_publicKey;
    QString m_baseUrl;
    int m_port = 0;
    bool m_keyReady = false;
};
