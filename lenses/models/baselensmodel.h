#pragma once

#include "lensid.h"

#include <QAbstractListModel>
#include <QStringList>

namespace VCam {

class LensInfoStorage;

// A list of lens ids shown as rows; every role is read from the lens info
// storage, and rows follow the storage's changes.
class BaseLensModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    Q_PROPERTY(bool canLoadMore READ canLoadMore NOTIFY canLoadMoreChanged)
public:
    explicit BaseLensModel(LensInfoStorage *storage, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;

    QStringList lensIds() const { return m_ids; }
    void setLensIds(const QStringList &ids);
    void appendLensIds(const QStringList &ids); // skips ids already listed
    bool containsLens(const LensId &lensId) const { return m_ids.contains(lensId); }

    // Whether the view may ask for more rows (fetchMoreRequested).
    bool canLoadMore() const { return m_canLoadMore; }
    void setCanLoadMore(bool value);

    Q_INVOKABLE QString lensIdAt(int row) const { return m_ids.value(row); }
    // Whether the storage holds the record of the lens in this row.
    bool isLensKnown(int row) const;
    Q_INVOKABLE void requestMore() { fetchMore({}); }

signals:
    void fetchMoreRequested();
    void countChanged();
    void canLoadMoreChanged();

protected:
    LensInfoStorage *storage() const { return m_storage; }
    void insertLensId(int row, const LensId &lensId);
    void removeLensId(const LensId &lensId);
    void moveLensId(int from, int to);
    void clearLensIds();
    // Called for every lens whose record changed; repaints its row.
    void refreshLens(const LensId &lensId);

private:
    LensInfoStorage *m_storage;
    QStringList m_ids;
    bool m_canLoadMore = false;
};

} // namespace VCam
