#include "favoriteslensmodel.h"

#include "lensinfostorage.h"

namespace VCam {

FavoritesLensModel::FavoritesLensModel(LensInfoStorage *storage, QObject *parent)
    : BaseLensModel(storage, parent)
{
    connect(storage, &LensInfoStorage::lensRemoved, this,
            [storage](const LensId &lensId) { storage->setFavorite(lensId, false); });
}

bool FavoritesLensModel::setFavorite(const LensId &lensId, bool value)
{
    if (lensId == kInvalidLensId || lensId.isEmpty() || value == containsLens(lensId))
        return false;
    if (value)
        insertLensId(0, lensId);
    else
        removeLensId(lensId);
    storage()->setFavorite(lensId, value);
    return true;
}

void FavoritesLensModel::setFavorites(const QStringList &ids)
{
    clear();
    QStringList valid;
    for (const QString &id : ids)
        if (id != kInvalidLensId && !id.isEmpty())
            valid << id;
    setLensIds(valid);
    for (const QString &id : lensIds())
        storage()->setFavorite(id, true);
}

void FavoritesLensModel::clear()
{
    const QStringList old = lensIds();
    setLensIds({});
    for (const QString &id : old)
        storage()->setFavorite(id, false);
}

} // namespace VCam
