#pragma once

#include "lensid.h"
#include "lensinfo.h"

#include <QString>
#include <map>
#include <vector>

namespace VCam {

// The sample lenses that ship with the program, signed at build time with
// the catalogue's key: offered when the catalogue cannot be reached, so a
// first start without network still has lenses to try. Their archives go
// through the same unpacking and signature check as downloaded ones.
class BundledLenses
{
public:
    static constexpr qint64 kMaxIndexBytes = 1 << 20;
    static constexpr qint64 kMaxArchiveBytes = 64 << 20;
    // Marks a bundled record in LensInfo::lensStatus.
    static inline const QString kStatus = QStringLiteral("bundled");

    // Reads <folder>/index.json; a missing or broken index leaves no lenses
    // (and logs why).
    explicit BundledLenses(const QString &folder = defaultFolder());

    // $GLINT_BUNDLED_LENSES, else bundled-lenses in the build tree's data
    // folder or in share/glint-camera beside the program's bin folder.
    static QString defaultFolder();

    const std::vector<LensInfo> &lenses() const { return m_lenses; }
    bool contains(const LensId &lensId) const { return m_entries.count(lensId) > 0; }
    QString signature(const LensId &lensId) const;
    // The archive's bytes; null when it is missing, unreadable or too large.
    QByteArray archive(const LensId &lensId) const;

private:
    struct Entry
    {
        QString archivePath;
        QString signature;
    };
    void load(const QString &folder);

    std::vector<LensInfo> m_lenses;
    std::map<LensId, Entry> m_entries;
};

} // namespace VCam
