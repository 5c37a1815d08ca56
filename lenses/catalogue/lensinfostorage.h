#pragma once

#include "lensid.h"
#include "lensinfo.h"

#include <QColor>
#include <QHash>
#include <QObject>
#include <QUrl>
#include <QVariant>
#include <map>
#include <set>

namespace VCam {

// The records of every lens the interface knows, keyed by lens id, with the
// values only the interface needs (favourite flag, main colour). The list
// models read their rows from here.
class LensInfoStorage : public QObject
{
    Q_OBJECT
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        AuthorRole,
        AuthorPageUrlRole,
        IconUrlRole,
        GlintcodeUrlRole,
        IsFavoriteRole,
        PreviewRole,
        PreviewSequenceRole,
        MainColorRole,
        InfoRolesCount, // also the role of the lens id
    };
    Q_ENUM(Role)
    // Shipped with the program and offered without the catalogue; outside
    // the numbered roles above, which the models extend.
    static constexpr int IsBundledRole = Qt::UserRole + 64;

    explicit LensInfoStorage(QObject *parent = nullptr);

    static QHash<int, QByteArray> roleNames();
    // https://<creator host>/creator/<slug>; empty without a slug.
    static QUrl authorPageUrl(const QString &authorSlug);
    // A colour of the lens's own, stable across runs.
    static QColor mainColorOf(const LensId &lensId);

    // Adds a record or replaces the one kept under its id; emits lensAdded
    // or, when the record changed, lensUpdated. Invalid ids are ignored.
    void insert(const LensInfo &info);
    void remove(const LensId &lensId);

    bool contains(const LensId &lensId) const { return m_lenses.count(lensId) > 0; }
    LensInfo info(const LensId &lensId) const;
    QVariant data(const LensId &lensId, int role) const;
    QVariantMap toVariantMap(const LensId &lensId) const;

    void setFavorite(const LensId &lensId, bool value);
    bool isFavorite(const LensId &lensId) const { return m_favorites.count(lensId) > 0; }

signals:
    void lensAdded(const VCam::LensId &lensId);
    void lensUpdated(const VCam::LensId &lensId);
    void lensRemoved(const VCam::LensId &lensId);

private:
    std::map<LensId, LensInfo> m_lenses;
    std::set<LensId> m_favorites;
};

} // namespace VCam
