#include "testlenses.h"

#include "lensserverprocess.h"

#include <JlCompress.h>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <quazip.h>
#include <quazipfile.h>
#include <quazipnewinfo.h>

namespace TestLenses {

QString makeLensFolder(const QString &parent, const QString &id, qint64 extraBytes)
{
    const QString folder = parent + QLatin1Char('/') + id;
    QDir().mkpath(parent);
    QProcess::execute(QStringLiteral("cp"),
                      {QStringLiteral("-r"), vectorDir() + QStringLiteral("/lens"), folder});
    QFile manifest(folder + QStringLiteral("/lens.json"));
    manifest.open(QIODevice::ReadOnly);
    QJsonObject json = QJsonDocument::fromJson(manifest.readAll()).object();
    manifest.close();
    json[QStringLiteral("id")] = id;
    json[QStringLiteral("name")] = QStringLiteral("Lens %1").arg(id);
    json[QStringLiteral("hint")] =
        QStringLiteral("hint_%1").arg(id).replace(QLatin1Char('-'), QLatin1Char('_'));
    manifest.open(QIODevice::WriteOnly | QIODevice::Truncate);
    manifest.write(QJsonDocument(json).toJson());
    manifest.close();
    if (extraBytes > 0) {
        QByteArray blob(extraBytes, Qt::Uninitialized);
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(blob.data()), extraBytes / 4);
        QFile file(folder + QStringLiteral("/blob.bin"));
        file.open(QIODevice::WriteOnly);
        file.write(blob);
    }
    return folder;
}

QString sign(const QString &folder, const QString &keyPath)
{
    const QString out =
        LensServerProcess::runPacker({QStringLiteral("sign"), folder, QStringLiteral("--key"), keyPath});
    return QJsonDocument::fromJson(out.toUtf8()).object().value(QStringLiteral("signature")).toString();
}

QByteArray zip(const QList<ZipEntry> &entries)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.zip"));
    {
        QuaZip archive(path);
        archive.open(QuaZip::mdCreate);
        for (const ZipEntry &entry : entries) {
            QuaZipNewInfo info(entry.name);
            // Unix mode bits in the upper half of the external attributes.
            const quint32 mode = entry.symlink ? 0120777 : 0100644;
            info.externalAttr = mode << 16;
            QuaZipFile file(&archive);
            file.open(QIODevice::WriteOnly, info);
            file.write(entry.data);
            file.close();
        }
        archive.close();
    }
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

QByteArray zipFolder(const QString &folder)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.zip"));
    JlCompress::compressDir(path, folder, true);
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace TestLenses
