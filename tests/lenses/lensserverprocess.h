#pragma once

#include "serverprocess.h"

#include <QStringList>
#include <QTemporaryDir>
#include <memory>

// The lens server for client tests: a signing key and a data folder of its
// own, lenses imported with the server's import command, and the server
// itself run through ServerProcess on a loopback port.
class LensServerProcess
{
public:
    LensServerProcess();

    bool isReady() const { return m_publicKey.size() == 160; }
    QString publicKey() const { return m_publicKey; }
    QString keyPath() const { return m_dir.filePath(QStringLiteral("key.pem")); }
    QString dataDir() const { return m_dir.filePath(QStringLiteral("data")); }

    // Packs, signs and registers lens folders (server must be stopped).
    bool import(const QStringList &lensFolders, bool featured = false);
    // Starts the server; after a stop it comes back on the same port.
    bool start(const QStringList &extraArguments = {});
    void stop() { m_server.reset(); }
    QString baseUrl() const { return m_baseUrl; } // ends in /vc/v1
    int port() const { return m_port; }

    static QString serverPath() { return QStringLiteral(GLINT_TEST_SERVER_BIN); }
    // Runs the packer; its standard output, or a null string when it failed.
    static QString runPacker(const QStringList &arguments);

private:
    QTemporaryDir m_dir;
    QString m_publicKey;
    std::unique_ptr<ServerProcess> m_server;
    QString m_baseUrl;
    int m_port = 0;
};
