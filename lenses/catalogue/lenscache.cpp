#include "lenscache.h"

#include "lenssignature.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

Q_LOGGING_CATEGORY(lcLensCache, "glint.lenses.cache")

namespace VCam {

namespace {

QString readString(const nlohmann::json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? QString::fromStdString(it->get<std::string>()) : QString();
}

} // namespace

LensCache::LensCache(const QString &defaultRoot, const QString &verificationKeyBase64)
    : m_defaultRoot(defaultRoot),
      m_root(defaultRoot.isEmpty() ? QString() : QDir(defaultRoot).absolutePath()),
      m_verificationKey(verificationKeyBase64)
{}

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

    const auto size = object.find("cacheSize");
    const bool sizeOk = size != object.end() && size->is_number_integer() && size->get<qint64>() >= 0;
    m_limit = sizeOk ? size->get<qint64>() * kMebibyte : kDefaultLimitBytes;
    const QString path = readString(object, "cachePath");
    const QString chosen = path.isEmpty() ? m_defaultRoot : path;
    // Without a root nothing is kept: an empty path must never turn lens
    // folders into paths relative to the working folder or to "/".
    m_root = chosen.isEmpty() ? QString() : QDir(chosen).absolutePath();
    if (m_root.isEmpty() || !QDir().mkpath(m_root)) {
        qCCritical(lcLensCache) << "Can't create the lens cache folder" << chosen;
        m_root.clear();
        return;
    }

    const auto info = object.find("cachedInfo");
    if (info != object.end() && info->is_array()) {
        for (const auto &item : *info) {
            if (!item.is_object())
                continue;
            const LensId id = readString(item, "lensId");
            if (!isValidLensId(id) || m_entries.count(id))
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
            if (isValidLensId(id) && !m_clearingQueue.contains(id))
                m_clearingQueue << id;
        }
    }
    retryClearingQueue();
    reconcile();
    evict();
}

// The index and the folders are brought into agreement: an indexed lens
// without its folder is forgotten; a folder that looks like a lens folder
// (<root>/<id> holding "lens" or "lens.zip") but is not indexed has no known
// signature and is deleted. Anything else in the root is left alone.
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
    const QStringList folders = QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QString &name : folders) {
        if (m_entries.count(name) || !isValidLensId(name))
            continue;
        const QDir dir(m_root + QLatin1Char('/') + name);
        if (!dir.exists(QStringLiteral("lens")) && !dir.exists(QStringLiteral("lens.zip")))
            continue;
        qCInfo(lcLensCache) << "Deleting lens folder missing from the index:" << dir.path();
        if (!deleteFolder(name))
            m_clearingQueue << name;
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
    m_limit = qMax<qint64>(0, bytes);
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

bool LensCache::deleteFolder(const LensId &lensId)
{
    const QString path = lensDirectory(lensId);
    if (path.isEmpty())
        return false;
    QDir dir(path);
    return !dir.exists() || dir.removeRecursively();
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
