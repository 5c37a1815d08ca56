#include "recentslensmodel.h"

#include "lensinfostorage.h"

#include <algorithm>

namespace VCam {

static_assert(RecentsLensModel::LastActivatedTimeRole == LensInfoStorage::InfoRolesCount + 1);

RecentsLensModel::RecentsLensModel(LensInfoStorage *storage, QObject *parent) : BaseLensModel(storage, parent)
{
    connect(storage, &LensInfoStorage::lensRemoved, this,
            [this](const LensId &lensId) { m_times.remove(lensId); });
}

QVariant RecentsLensModel::data(const QModelIndex &index, int role) const
{
    if (role == LastActivatedTimeRole && index.isValid() && index.row() < rowCount())
        return m_times.value(lensIdAt(index.row()));
    return BaseLensModel::data(index, role);
}

QHash<int, QByteArray> RecentsLensModel::roleNames() const
{
    auto names = BaseLensModel::roleNames();
    names.insert(LastActivatedTimeRole, "lastActivatedTime");
    return names;
}

void RecentsLensModel::activate(const LensId &lensId, const QDateTime &when)
{
    if (lensId == kInvalidLensId || lensId.isEmpty())
        return;
    if (m_shown)
        m_pending.append({lensId, when});
    else
        apply(lensId, when);
}

void RecentsLensModel::apply(const LensId &lensId, const QDateTime &when)
{
    m_times.insert(lensId, when);
    const int row = lensIds().indexOf(lensId);
    if (row > 0)
        moveLensId(row, 0);
    else if (row < 0)
        insertLensId(0, lensId);
    if (row == 0)
        refreshLens(lensId);
    while (rowCount() > kMaxRecents) {
        const LensId oldest = lensIdAt(rowCount() - 1);
        m_times.remove(oldest);
        removeLensId(oldest);
    }
}

void RecentsLensModel::setShown(bool shown)
{
    m_shown = shown;
    if (shown)
        return;
    const auto pending = std::exchange(m_pending, {});
    for (const auto &[lensId, when] : pending)
        apply(lensId, when);
}

LensId RecentsLensModel::mostRecent() const
{
    if (!m_pending.isEmpty())
        return m_pending.last().first;
    return rowCount() > 0 ? lensIdAt(0) : kInvalidLensId;
}

void RecentsLensModel::clear()
{
    m_pending.clear();
    m_times.clear();
    setLensIds({});
}

nlohmann::json RecentsLensModel::toJson() const
{
    auto array = nlohmann::json::array();
    for (const QString &id : lensIds())
        array.push_back({{"lensId", id.toStdString()}, {"timestamp", m_times.value(id).toMSecsSinceEpoch()}});
    for (const auto &[lensId, when] : m_pending)
        array.push_back({{"lensId", lensId.toStdString()}, {"timestamp", when.toMSecsSinceEpoch()}});
    return array;
}

void RecentsLensModel::fromJson(const nlohmann::json &array)
{
    clear();
    if (!array.is_array())
        return;
    std::vector<std::pair<qint64, LensId>> entries;
    for (const auto &item : array) {
        if (!item.is_object() || !item.contains("lensId") || !item["lensId"].is_string())
            continue;
        const qint64 ms = item.contains("timestamp") && item["timestamp"].is_number_integer()
                              ? item["timestamp"].get<qint64>()
                              : 0;
        entries.emplace_back(ms, QString::fromStdString(item["lensId"].get<std::string>()));
    }
    // Oldest first, so that the newest ends on top.
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    for (const auto &[ms, lensId] : entries)
        apply(lensId, QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC));
}

} // namespace VCam
