#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Lens folders and archives for the tests, made from the shared signature
// vector lens.
namespace TestLenses {

inline QString vectorDir()
{
    return QStringLiteral(GLINT_TEST_DATA "/signatures");
}

// Copies the vector lens to <parent>/<id> with the manifest's id set to id;
// extraBytes of random data are added as "blob.bin" when asked.
QString makeLensFolder(const QString &parent, const QString &id, qint64 extraBytes = 0);

// The packer's signature of a lens folder under its manifest id.
QString sign(const QString &folder, const QString &keyPath);

struct ZipEntry
{
    QString name;
    QByteArray data;
    bool symlink = false; // data is the link target
};
QByteArray zip(const QList<ZipEntry> &entries);
QByteArray zipFolder(const QString &folder);

} // namespace TestLenses
