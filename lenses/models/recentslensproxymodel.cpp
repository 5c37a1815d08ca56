#include "recentslensproxymodel.h"

#include "lensinfostorage.h"
#include "recentslensmodel.h"

#include <QDateTime>

namespace VCam {

RecentsLensProxyModel::RecentsLensProxyModel(RecentsLensModel *recents, QObject *parent)
    : QSortFilterProxyModel(parent), m_recents(recents)
{
    setSourceModel(recents);
    setFilterRole(LensInfoStorage::TitleRole);
    setFilterCaseSensitivity(Qt::CaseInsensitive);
    setSortRole(RecentsLensModel::LastActivatedTimeRole);
    setDynamicSortFilter(true);
    sort(0, Qt::DescendingOrder);
    connect(this, &QAbstractItemModel::rowsInserted, this, &RecentsLensProxyModel::countChanged);
    connect(this, &QAbstractItemModel::rowsRemoved, this, &RecentsLensProxyModel::countChanged);
    connect(this, &QAbstractItemModel::modelReset, this, &RecentsLensProxyModel::countChanged);
    connect(this, &QAbstractItemModel::layoutChanged, this, &RecentsLensProxyModel::countChanged);
}

QString RecentsLensProxyModel::lensIdAt(int row) const
{
    return data(index(row, 0), LensInfoStorage::InfoRolesCount).toString();
}

bool RecentsLensProxyModel::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    return m_recents->isLensKnown(sourceRow) &&
           QSortFilterProxyModel::filterAcceptsRow(sourceRow, sourceParent);
}

bool RecentsLensProxyModel::lessThan(const QModelIndex &left, const QModelIndex &right) const
{
    const QDateTime a = left.data(RecentsLensModel::LastActivatedTimeRole).toDateTime();
    const QDateTime b = right.data(RecentsLensModel::LastActivatedTimeRole).toDateTime();
    if (a != b)
        return a < b;
    // Equal times keep the list's own order (the earlier row is newer).
    return left.row() > right.row();
}

} // namespace VCam
