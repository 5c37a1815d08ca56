#pragma once

#include <QSortFilterProxyModel>

namespace VCam {

class RecentsLensModel;

// The recents as shown: newest activation first, only lenses whose record
// is known, optionally narrowed to titles containing the filter text.
class RecentsLensProxyModel : public QSortFilterProxyModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
public:
    explicit RecentsLensProxyModel(RecentsLensModel *recents, QObject *parent = nullptr);

    int count() const { return rowCount(); }
    Q_INVOKABLE QString lensIdAt(int row) const;

signals:
    void countChanged();

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;
    bool lessThan(const QModelIndex &left, const QModelIndex &right) const override;

private:
    RecentsLensModel *m_recents;
};

} // namespace VCam
