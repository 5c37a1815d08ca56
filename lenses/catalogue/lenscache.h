#pragma once

#include "lensid.h"

#include <QLoggingCategory>
#include <QString>
#include <QStringList>
#include <map>
#include <nlohmann/json.hpp>

Q_DECLARE_LOGGING_CATEGORY(lcLensCache)

namespace VCam {

// The folder tree of acquired lenses: <root>/<lensId>/lens, an index of
// signatures and hint ids, the order of use, the total size and its limit.
// Every cached lens is checked against its signature when it is used.
class LensCache
{
public:
    static constexpr qint64 kMebibyte = 1024 * 1024;
    static constexpr qint64 kDefaultLimitBytes = 200 * kMebibyte;

    LensCache(const QString &defaultRoot, const QString &verificationKeyBase64);

    // The "cache" object of the lens store's settings section.
    void load(const nlohmann::json &settings);
    nlohmann::json save() const;

    // A lens id is used in paths only when it is 1 to 128 characters of
    // A-Z, a-z, 0-9, '_' and '-' (and not the invalid id).
    static bool isValidLensId(const LensId &lensId);

    QString rootPath() const { return m_root; }
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

    void reconcile();
    bool deleteFolder(const LensId &lensId);
    void retryClearingQueue();
    void forget(const LensId &lensId);

    QString m_defaultRoot;
    QString m_root;
    QString m_verificationKey;
    qint64 m_limit = kDefaultLimitBytes;
    std::map<LensId, Entry> m_entries;
    QStringList m_order;
    QStringList m_clearingQueue;
    qint64 m_totalSize = 0;
    LensId m_activeLens = kInvalidLensId;
};

} // namespace VCam
