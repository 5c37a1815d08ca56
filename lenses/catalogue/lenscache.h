#pragma once

#include "lensid.h"

#include <QLoggingCategory>
#include <QSet>
#include <QString>
#include <QStringList>
#include <map>
#include <nlohmann/json.hpp>

Q_DECLARE_LOGGING_CATEGORY(lcLensCache)

namespace VCam {

// The folder tree of acquired lenses: <root>/<lensId>/lens, an index of
// signatures and hint ids, the order of use, the total size and its limit.
// Every cached lens is checked against its signature when it is used.
//
// The cache deletes only what it made. Its root holds a marker file that
// lists every lens folder the cache created there, written before the folder
// is; a folder not on that list is never deleted, whatever its name or
// content. A root that is neither empty nor marked is refused.
class LensCache
{
public:
    static constexpr qint64 kMebibyte = 1024 * 1024;
    static constexpr qint64 kDefaultLimitBytes = 200 * kMebibyte;
    // Limits beyond 1 TiB are taken as 1 TiB.
    static constexpr qint64 kMaxLimitMebibytes = 1024 * 1024;
    static constexpr const char *kMarkerName = ".glint-lens-cache";

    LensCache(const QString &defaultRoot, const QString &verificationKeyBase64);

    // The "cache" object of the lens store's settings section.
    void load(const nlohmann::json &settings);
    nlohmann::json save() const;

    // A lens id is used in paths only when it is 1 to 128 characters of
    // A-Z, a-z, 0-9, '_' and '-' (and not the invalid id).
    static bool isValidLensId(const LensId &lensId);

    QString rootPath() const { return m_root; }
    // Why the last root asked for was refused; empty when it was taken.
    QString problem() const { return m_problem; }
    // Makes another folder the root: the cache's own lens folders move there
    // (or are dropped where they can't move), nothing else is touched. False,
    // with problem() set, when the folder can't be a cache; the old root stays.
    bool changeRoot(const QString &path);
    // Claims <root>/<id> for a new copy of the lens and returns <root>/<id>/lens;
    // empty when there is no root or a folder of that name is not the cache's.
    QString prepareLensPath(const LensId &lensId);
    bool owns(const LensId &lensId) const { return m_owned.contains(lensId); }
    QString lensDirectory(const LensId &lensId) const; // <root>/<id>, empty for a bad id
    QString lensPath(const LensId &lensId) const;      // <root>/<id>/lens, empty for a bad id

    bool add(const LensId &lensId, const QString &signature, const QString &hintId);
    bool verify(const LensId &lensId, bool removeWhenBad);
    void touch(const LensId &lensId);
    void remove(const LensId &lensId);
    void evict(qint64 limitBytes);
    void evict() { evict(m_limit); }

    void setActiveLens(const LensId &lensId) { m_activeLens = lensId; }
    LensId activeLens() const { return m_activeLens; }
    void setLimit(qint64 bytes);
    qint64 limit() const { return m_limit; }

    bool contains(const LensId &lensId) const { return m_entries.count(lensId) > 0; }
    QString hintId(const LensId &lensId) const;
    QString signature(const LensId &lensId) const;
    QStringList lensIds() const { return m_order; } // least recently used first
    qint64 totalSize() const { return m_totalSize; }
    QStringList clearingQueue() const { return m_clearingQueue; }

    static qint64 folderSize(const QString &path);

private:
    struct Entry
    {
        QString signature;
        QString hintId;
        qint64 size = 0;
    };

    bool openRoot(const QString &path);
    bool readMarker(const QString &root, QSet<LensId> &owned, bool &createdRoot, QString &problem) const;
    bool writeMarker();
    void reconcile();
    bool deleteFolder(const LensId &lensId);
    void retryClearingQueue();
    void forget(const LensId &lensId);

    QString m_defaultRoot;
    QString m_root;
    QString m_problem;
    QSet<LensId> m_owned;
    bool m_rootCreated = false;
    QString m_verificationKey;
    qint64 m_limit = kDefaultLimitBytes;
    std::map<LensId, Entry> m_entries;
    QStringList m_order;
    QStringList m_clearingQueue;
    qint64 m_totalSize = 0;
    LensId m_activeLens = kInvalidLensId;
};

} // namespace VCam
