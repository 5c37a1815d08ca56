#include "lensarchive.h"

#include <JlCompress.h>
#include <QDir>
#include <QFileInfo>
#include <quazip.h>
#include <quazipfileinfo.h>

namespace VCam {

LensArchive::LensArchive(const QString &zipPath, qint64 maxUnpackedBytes)
    : m_zipPath(zipPath), m_maxUnpackedBytes(maxUnpackedBytes)
{}

bool LensArchive::isSafeEntryName(const QString &name)
{
    if (name.isEmpty() || name.startsWith(QLatin1Char('/')) || name.contains(QLatin1Char('\\')) ||
        name.contains(QLatin1Char(':')) || name.contains(QChar(0)))
        return false;
    const QStringList parts = name.split(QLatin1Char('/'));
    return !parts.contains(QStringLiteral(".."));
}

bool LensArchive::inspect(QString *reason) const
{
    QuaZip zip(m_zipPath);
    if (!zip.open(QuaZip::mdUnzip)) {
        *reason = QStringLiteral("not a readable zip archive");
        return false;
    }
    const QList<QuaZipFileInfo64> entries = zip.getFileInfoList64();
    if (zip.getZipError() != UNZ_OK) {
        *reason = QStringLiteral("the archive's directory can't be read");
        return false;
    }
    if (entries.size() > kMaxEntries) {
        *reason = QStringLiteral("more than %1 entries").arg(kMaxEntries);
        return false;
    }
    quint64 total = 0;
    for (const QuaZipFileInfo64 &entry : entries) {
        if (!isSafeEntryName(entry.name)) {
            *reason = QStringLiteral("entry \"%1\" would land outside the lens folder").arg(entry.name);
            return false;
        }
        if (entry.isSymbolicLink()) {
            *reason = QStringLiteral("entry \"%1\" is a symbolic link").arg(entry.name);
            return false;
        }
        total += entry.uncompressedSize;
        if (total > static_cast<quint64>(m_maxUnpackedBytes)) {
            *reason = QStringLiteral("unpacked size passes %1 bytes").arg(m_maxUnpackedBytes);
            return false;
        }
    }
    return true;
}

QStringList LensArchive::extract(const QString &targetDir, QString *reason) const
{
    if (!inspect(reason))
        return {};
    const QStringList files = JlCompress::extractDir(m_zipPath, targetDir);
    // The names were checked above; this guards against anything the check
    // could have missed before the files are used.
    const QString root = QDir(targetDir).canonicalPath() + QLatin1Char('/');
    for (const QString &file : files) {
        const QFileInfo info(file);
        const QString where = info.isSymLink() ? info.absoluteFilePath() : info.canonicalFilePath();
        if (info.isSymLink() || !where.startsWith(root)) {
            *reason = QStringLiteral("\"%1\" is outside the lens folder").arg(file);
            return {};
        }
    }
    if (files.isEmpty())
        *reason = QStringLiteral("no files in the archive");
    return files;
}

} // namespace VCam
