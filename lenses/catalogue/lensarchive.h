#pragma once

#include <QString>
#include <QStringList>

namespace VCam {

// A downloaded lens archive. Before anything is unpacked every entry is
// checked: names that are absolute, contain ".." or backslashes, symbolic
// links, and archives whose unpacked size or entry count pass the limits are
// refused, so nothing can land outside the target folder.
class LensArchive
{
public:
    static constexpr qint64 kDefaultMaxUnpackedBytes = 200ll * 1024 * 1024;
    static constexpr int kMaxEntries = 10000;

    explicit LensArchive(const QString &zipPath, qint64 maxUnpackedBytes = kDefaultMaxUnpackedBytes);

    // Checks every entry; false with a reason when the archive is refused.
    bool inspect(QString *reason) const;

    // Inspects, then unpacks into targetDir. Returns the files written; an
    // empty list when the archive is refused, empty or unreadable.
    QStringList extract(const QString &targetDir, QString *reason) const;

    static bool isSafeEntryName(const QString &name);

private:
    QString m_zipPath;
    qint64 m_maxUnpackedBytes;
};

} // namespace VCam
