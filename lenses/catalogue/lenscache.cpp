#include "lenscache.h"

#include "lenssignature.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

Q_LOGGING_CATEGORY(lcLensCache, "glint.lenses.cache")

namespace VCam {

namespace {

QString readString(const nlohmann::json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? QString::fromStdString(it->get<std::string>()) : QString();
}

constexpr const char *kMarkerOwner = "Glint Camera lens cache";
constexpr qint64 kMaxMarkerBytes = 16 * 1024 * 1024;

// "cacheSize" in mebibytes: a whole number from 0 to the largest limit;
// anything else gives the default.
qint64 limitFromSettings(const nlohmann::json &object)
{
    const auto size = object.find("cacheSize");
    if (size == object.end() || !size->is_number_integer())
        return LensCache::kDefaultLimitBytes;
    if (size->is_number_unsigned())
        return std::min<quint64>(size->get<quint64>(), LensCache::kMaxLimitMebibytes) * LensCache::kMebibyte;
    const qint64 mebibytes = size->get<qint64>();
    if (mebibytes < 0)
        return LensCache::kDefaultLimitBytes;
    return std::min<qint64>(mebibytes, LensCache::kMaxLimitMebibytes) * LensCache::kMebibyte;
}

} // namespace

LensCache::LensCache(const QString &defaultRoot, const QString &verificationKeyBase64)
    : m_defaultRoot(defaultRoot), m_verificationKey(verificationKeyBase64)
{
    if (!defaultRoot.isEmpty() && !openRoot(defaultRoot))
        qCCritical(lcLensCache).noquote() << "Lens cache folder refused:" << m_problem;
}

bool LensCache::isValidLensId(const LensId &lensId)
{
    if (lensId.isEmpty() || lensId.size() > 128 || lensId == kInvalidLensId)
        return false;
    for (const QChar c : lensId) {
        const ushort u = c.unicode();
        const bool ok = (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') ||
                        u == '_' || u == '-';
        if (!ok)
            return false;
    }
    return true;
}

QString LensCache::lensDirectory(const LensId &lensId) const
{
    return isValidLensId(lensId) && !m_root.isEmpty() ? m_root + QLatin1Char('/') + lensId : QString();
}

QString LensCache::lensPath(const LensId &lensId) const
{
    const QString dir = lensDirectory(lensId);
    return dir.isEmpty() ? dir : dir + QStringLiteral("/lens");
}

QString LensCache::hintId(const LensId &lensId) const
{
    const auto it = m_entries.find(lensId);
    return it == m_entries.end() ? QString() : it->second.hintId;
}

QString LensCache::signature(const LensId &lensId) const
{
    const auto it = m_entries.find(lensId);
    return it == m_entries.end() ? QString() : it->second.signature;
}

void LensCache::load(const nlohmann::json &settings)
{
    m_entries.clear();
    m_order.clear();
    m_clearingQueue.clear();
    m_totalSize = 0;
    const nlohmann::json object = settings.is_object() ? settings : nlohmann::json::object();

    m_limit = limitFromSettings(object);
    const QString path = readString(object, "cachePath");
    m_root.clear();
    m_owned.clear();
    QString refused;
    if (!path.isEmpty() && !openRoot(path)) {
        qCCritical(lcLensCache).noquote() << "Lens cache folder refused:" << m_problem;
        refused = m_problem;
        m_root.clear();
    }
    // The default root is ours to create; it is also refused when someone
    // else's files are there.
    if (m_root.isEmpty() && !m_defaultRoot.isEmpty() && !openRoot(m_defaultRoot)) {
        qCCritical(lcLensCache).noquote() << "Lens cache folder refused:" << m_problem;
        m_root.clear();
    }
    if (!refused.isEmpty())
        m_problem = refused; // what the user asked for, and why it was not taken
    if (m_root.isEmpty())
        return;

    const auto info = object.find("cachedInfo");
    if (info != object.end() && info->is_array()) {
        for (const auto &item : *info) {
            if (!item.is_object())
                continue;
            const LensId id = readString(item, "lensId");
            if (!isValidLensId(id) || m_entries.count(id) || !m_owned.contains(id))
                continue;
            m_entries[id] = Entry{readString(item, "signature"), readString(item, "hintId"), 0};
            m_order << id;
        }
    }
    const auto queue = object.find("clearingQueue");
    if (queue != object.end() && queue->is_array()) {
        for (const auto &item : *queue) {
            const LensId id = item.is_string() ? QString::fromStdString(item.get<std::string>())
                                               : readString(item, "lensId");
            if (isValidLensId(id) && m_owned.contains(id) && !m_clearingQueue.contains(id))
                m_clearingQueue << id;
        }
    }
    retryClearingQueue();
    reconcile();
    evict();
}

// The index and the folders are brought into agreement: an indexed lens
// without its folder is forgotten; a folder the cache made but no longer
// indexes has no known signature and is deleted. Folders the cache did not
// make are left alone.
void LensCache::reconcile()
{
    for (const LensId &id : QStringList(m_order)) {
        if (!QFileInfo(lensPath(id)).isDir()) {
            qCInfo(lcLensCache) << "Forgetting cached lens without folder:" << id;
            forget(id);
            continue;
        }
        m_entries[id].size = folderSize(lensPath(id));
        m_totalSize += m_entries[id].size;
    }
    for (const LensId &id : QStringList(m_owned.values())) {
        if (m_entries.count(id))
            continue;
        qCInfo(lcLensCache) << "Deleting lens folder missing from the index:" << lensDirectory(id);
        if (!deleteFolder(id) && !m_clearingQueue.contains(id))
            m_clearingQueue << id;
    }
}

void LensCache::retryClearingQueue()
{
    QStringList stillThere;
    for (const LensId &id : qAsConst(m_clearingQueue)) {
        if (m_entries.count(id))
            continue; // indexed again since; keep it
        if (!deleteFolder(id))
            stillThere << id;
    }
    m_clearingQueue = stillThere;
}

nlohmann::json LensCache::save() const
{
    nlohmann::json info = nlohmann::json::array();
    for (const LensId &id : m_order) {
        const Entry &entry = m_entries.at(id);
        info.push_back({{"lensId", id.toStdString()},
                        {"signature", entry.signature.toStdString()},
                        {"hintId", entry.hintId.toStdString()}});
    }
    nlohmann::json queue = nlohmann::json::array();
    for (const LensId &id : m_clearingQueue)
        queue.push_back({{"lensId", id.toStdString()}});
    return {{"cachePath", m_root.toStdString()},
            {"cacheSize", m_limit / kMebibyte},
            {"cachedInfo", info},
            {"clearingQueue", queue}};
}

bool LensCache::add(const LensId &lensId, const QString &signature, const QString &hintId)
{
    if (!isValidLensId(lensId))
        return false;
    Entry &entry = m_entries[lensId];
    entry.signature = signature;
    entry.hintId = hintId;
    if (!verify(lensId, true))
        return false;
    m_order.removeAll(lensId);
    m_order << lensId;
    const qint64 size = folderSize(lensPath(lensId));
    m_totalSize += size - m_entries[lensId].size;
    m_entries[lensId].size = size;
    evict();
    return true;
}

bool LensCache::verify(const LensId &lensId, bool removeWhenBad)
{
    const auto it = m_entries.find(lensId);
    if (it == m_entries.end())
        return false;
    if (verifyLensSignature(lensId, lensPath(lensId), it->second.signature, m_verificationKey))
        return true;
    qCWarning(lcLensCache) << "Cached lens failed verification:" << lensId;
    if (removeWhenBad)
        remove(lensId);
    return false;
}

void LensCache::touch(const LensId &lensId)
{
    if (m_order.removeAll(lensId) > 0)
        m_order << lensId;
}

void LensCache::remove(const LensId &lensId)
{
    if (!isValidLensId(lensId))
        return;
    if (!deleteFolder(lensId)) {
        qCCritical(lcLensCache) << "Can't remove lens, path:" << lensDirectory(lensId);
        if (!m_clearingQueue.contains(lensId))
            m_clearingQueue << lensId;
    }
    forget(lensId);
}

void LensCache::evict(qint64 limitBytes)
{
    for (const LensId &id : QStringList(m_order)) {
        if (m_totalSize <= limitBytes)
            return;
        if (id == m_activeLens)
            continue;
        if (!deleteFolder(id)) {
            qCWarning(lcLensCache) << "Can't remove lens, path:" << lensDirectory(id);
            m_clearingQueue << id;
        }
        forget(id);
    }
}

void LensCache::setLimit(qint64 bytes)
{
    m_limit = qBound<qint64>(0, bytes, kMaxLimitMebibytes * kMebibyte);
    evict();
}

void LensCache::forget(const LensId &lensId)
{
    const auto it = m_entries.find(lensId);
    if (it != m_entries.end()) {
        m_totalSize -= it->second.size;
        m_entries.erase(it);
    }
    m_order.removeAll(lensId);
}

// Only a folder on the marker's list is deleted; one that is not was never
// the cache's and counts as gone for the cache's bookkeeping.
bool LensCache::deleteFolder(const LensId &lensId)
{
    const QString path = lensDirectory(lensId);
    if (path.isEmpty())
        return false;
    if (!m_owned.contains(lensId))
        return true;
    const QFileInfo info(path);
    if (info.isSymLink() ? !QFile::remove(path) : (info.exists() && !QDir(path).removeRecursively()))
        return false;
    m_owned.remove(lensId);
    writeMarker();
    return true;
}

QString LensCache::prepareLensPath(const LensId &lensId)
{
    const QString dir = lensDirectory(lensId);
    if (dir.isEmpty())
        return {};
    if (!m_owned.contains(lensId)) {
        if (QFileInfo(dir).exists() || QFileInfo(dir).isSymLink()) {
            qCWarning(lcLensCache) << "Not using" << dir << "for a lens: the folder is not the cache's";
            return {};
        }
        m_owned.insert(lensId);
        if (!writeMarker()) {
            m_owned.remove(lensId);
            return {};
        }
    }
    return QDir().mkpath(dir) ? lensPath(lensId) : QString();
}

bool LensCache::readMarker(const QString &root, QSet<LensId> &owned, bool &createdRoot,
                           QString &problem) const
{
    QFile file(root + QLatin1Char('/') + QLatin1String(kMarkerName));
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxMarkerBytes) {
        problem = QStringLiteral("%1 has an unreadable lens cache marker").arg(root);
        return false;
    }
    const QByteArray bytes = file.readAll();
    const auto marker =
        nlohmann::json::parse(bytes.constData(), bytes.constData() + bytes.size(), nullptr, false);
    if (!marker.is_object() || readString(marker, "owner") != QLatin1String(kMarkerOwner)) {
        problem = QStringLiteral("%1 has a lens cache marker that is not ours").arg(root);
        return false;
    }
    const auto entries = marker.find("entries");
    if (entries != marker.end() && entries->is_array()) {
        for (const auto &item : *entries) {
            const LensId id = item.is_string() ? QString::fromStdString(item.get<std::string>()) : QString();
            if (isValidLensId(id))
                owned.insert(id);
        }
    }
    const auto created = marker.find("createdRoot");
    createdRoot = created != marker.end() && created->is_boolean() && created->get<bool>();
    return true;
}

bool LensCache::writeMarker()
{
    if (m_root.isEmpty())
        return false;
    QStringList ids = m_owned.values();
    ids.sort();
    nlohmann::json entries = nlohmann::json::array();
    for (const LensId &id : qAsConst(ids))
        entries.push_back(id.toStdString());
    const std::string text =
        nlohmann::json{{"owner", kMarkerOwner}, {"createdRoot", m_rootCreated}, {"entries", entries}}.dump(1);
    QSaveFile file(m_root + QLatin1Char('/') + QLatin1String(kMarkerName));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(text.data(), qint64(text.size())) != qint64(text.size()) || !file.commit()) {
        qCCritical(lcLensCache) << "Can't write the lens cache marker in" << m_root << file.errorString();
        return false;
    }
    return true;
}

// A root is usable when it is missing (created here), empty, or marked as a
// cache of ours; a folder with anything else in it is refused.
bool LensCache::openRoot(const QString &path)
{
    m_problem.clear();
    const QString root = QDir(path).absolutePath();
    const bool isDefault = !m_defaultRoot.isEmpty() && root == QDir(m_defaultRoot).absolutePath();
    const QFileInfo info(root);
    QSet<LensId> owned;
    bool created = false;
    if (!info.exists()) {
        if (!QDir().mkpath(root)) {
            m_problem = QStringLiteral("%1 can't be created").arg(root);
            return false;
        }
        created = true;
    } else if (!info.isDir()) {
        m_problem = QStringLiteral("%1 is not a folder").arg(root);
        return false;
    } else if (QFileInfo::exists(root + QLatin1Char('/') + QLatin1String(kMarkerName))) {
        if (!readMarker(root, owned, created, m_problem))
            return false;
    } else if (!QDir(root).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)) {
        if (!isDefault) {
            m_problem =
                QStringLiteral("%1 is not empty and is not a lens cache; choose an empty folder").arg(root);
            return false;
        }
        // The default root lies in the program's own data folder. One from a
        // version without the marker is taken over, claiming only what looks
        // like a lens folder of ours.
        const QStringList folders = QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
        for (const QString &name : folders) {
            const QDir dir(root + QLatin1Char('/') + name);
            if (isValidLensId(name) && !QFileInfo(dir.path()).isSymLink() &&
                (dir.exists(QStringLiteral("lens")) || dir.exists(QStringLiteral("lens.zip"))))
                owned.insert(name);
        }
    }
    m_root = root;
    m_owned = owned;
    m_rootCreated = created;
    if (!writeMarker()) {
        m_problem = QStringLiteral("%1 is not writable").arg(root);
        m_root.clear();
        m_owned.clear();
        return false;
    }
    return true;
}

bool LensCache::changeRoot(const QString &path)
{
    const QString oldRoot = m_root;
    const QSet<LensId> oldOwned = m_owned;
    const bool oldCreated = m_rootCreated;
    if (!openRoot(path)) {
        qCWarning(lcLensCache).noquote() << "Lens cache folder refused:" << m_problem;
        const QString problem = m_problem;
        m_root = oldRoot;
        m_owned = oldOwned;
        m_rootCreated = oldCreated;
        m_problem = problem;
        return false;
    }
    if (oldRoot.isEmpty() || oldRoot == m_root)
        return true;
    // Indexed lenses move along when they can and are dropped when they
    // can't; whatever else the cache made in the old root is dropped.
    for (const LensId &id : oldOwned) {
        const QString from = oldRoot + QLatin1Char('/') + id;
        const QString to = m_root + QLatin1Char('/') + id;
        const bool indexed = m_entries.count(id) > 0;
        if (indexed && !m_owned.contains(id) && !QFileInfo::exists(to)) {
            m_owned.insert(id);
            writeMarker();
            if (QDir().rename(from, to))
                continue;
            m_owned.remove(id);
            writeMarker();
        }
        if (!QFileInfo(from).isSymLink())
            QDir(from).removeRecursively();
        else
            QFile::remove(from);
        if (indexed && !m_owned.contains(id))
            forget(id);
    }
    QFile::remove(oldRoot + QLatin1Char('/') + QLatin1String(kMarkerName));
    if (oldCreated)
        QDir().rmdir(oldRoot); // only when nothing else is in it
    m_clearingQueue.clear();
    return true;
}

qint64 LensCache::folderSize(const QString &path)
{
    qint64 total = 0;
    QDirIterator it(path, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}

} // namespace VCam
