#include "baselensmodel.h"

#include "lensinfostorage.h"

#include <QSet>

namespace VCam {

BaseLensModel::BaseLensModel(LensInfoStorage *storage, QObject *parent)
    : QAbstractListModel(parent), m_storage(storage)
{
    connect(storage, &LensInfoStorage::lensAdded, this, &BaseLensModel::refreshLens);
    connect(storage, &LensInfoStorage::lensUpdated, this, &BaseLensModel::refreshLens);
    connect(storage, &LensInfoStorage::lensRemoved, this, &BaseLensModel::removeLensId);
    connect(this, &QAbstractItemModel::rowsInserted, this, &BaseLensModel::countChanged);
    connect(this, &QAbstractItemModel::rowsRemoved, this, &BaseLensModel::countChanged);
    connect(this, &QAbstractItemModel::modelReset, this, &BaseLensModel::countChanged);
}

int BaseLensModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_ids.size();
}

QVariant BaseLensModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    return m_storage->data(m_ids.at(index.row()), role);
}

QHash<int, QByteArray> BaseLensModel::roleNames() const
{
    return LensInfoStorage::roleNames();
}

bool BaseLensModel::canFetchMore(const QModelIndex &parent) const
{
    return !parent.isValid() && m_canLoadMore;
}

void BaseLensModel::fetchMore(const QModelIndex &parent)
{
    if (canFetchMore(parent))
        emit fetchMoreRequested();
}

bool BaseLensModel::isLensKnown(int row) const
{
    return row >= 0 && row < m_ids.size() && m_storage->contains(m_ids.at(row));
}

void BaseLensModel::setLensIds(const QStringList &ids)
{
    if (ids == m_ids)
        return;
    beginResetModel();
    m_ids.clear();
    QSet<QString> seen;
    seen.reserve(ids.size());
    for (const QString &id : ids) {
        if (seen.contains(id))
            continue;
        seen.insert(id);
        m_ids << id;
    }
    endResetModel();
}

void BaseLensModel::appendLensIds(const QStringList &ids)
{
    QStringList fresh;
    for (const QString &id : ids)
        if (!m_ids.contains(id) && !fresh.contains(id))
            fresh << id;
    if (fresh.isEmpty())
        return;
    beginInsertRows({}, m_ids.size(), m_ids.size() + fresh.size() - 1);
    m_ids << fresh;
    endInsertRows();
}

void BaseLensModel::setCanLoadMore(bool value)
{
    if (value == m_canLoadMore)
        return;
    m_canLoadMore = value;
    emit canLoadMoreChanged();
}

void BaseLensModel::insertLensId(int row, const LensId &lensId)
{
    row = qBound(0, row, int(m_ids.size()));
    beginInsertRows({}, row, row);
    m_ids.insert(row, lensId);
    endInsertRows();
}

void BaseLensModel::removeLensId(const LensId &lensId)
{
    const int row = m_ids.indexOf(lensId);
    if (row < 0)
        return;
    beginRemoveRows({}, row, row);
    m_ids.removeAt(row);
    endRemoveRows();
}

void BaseLensModel::moveLensId(int from, int to)
{
    if (from == to || from < 0 || to < 0 || from >= m_ids.size() || to >= m_ids.size())
        return;
    // Qt's move takes the row *before which* the moved row lands.
    beginMoveRows({}, from, from, {}, to > from ? to + 1 : to);
    m_ids.move(from, to);
    endMoveRows();
}

void BaseLensModel::clearLensIds()
{
    setLensIds({});
}

void BaseLensModel::refreshLens(const LensId &lensId)
{
    const int row = m_ids.indexOf(lensId);
    if (row < 0)
        return;
    const QModelIndex changed = index(row);
    emit dataChanged(changed, changed);
}

} // namespace VCam
