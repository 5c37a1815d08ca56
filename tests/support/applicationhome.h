#pragma once

// A private home for an application started inside a test: its own config,
// data and runtime folders (found through the XDG variables), a settings
// file written beforehand, and a lens backend address where nothing answers.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

inline QTemporaryDir *prepareApplicationHome(const QByteArray &settingsJson)
{
    auto *home = new QTemporaryDir;
    for (const char *folder : {"config/Glint/Glint Camera", "data", "runtime"})
        QDir().mkpath(home->filePath(folder));
    QFile::setPermissions(home->filePath("runtime"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QFile settings(home->filePath("config/Glint/Glint Camera/settings.json"));
    if (settings.open(QIODevice::WriteOnly))
        settings.write(settingsJson);
    qputenv("GLINT_BACKEND_URL", "http://127.0.0.1:9/vc/v1");
    qputenv("XDG_CONFIG_HOME", home->filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home->filePath("data").toUtf8());
    qputenv("XDG_RUNTIME_DIR", home->filePath("runtime").toUtf8());
    return home;
}
