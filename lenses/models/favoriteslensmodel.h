#pragma once

#include "baselensmodel.h"

namespace VCam {

// The user's favourite lenses, newest first. Keeps the storage's favourite
// flag in step with its rows.
class FavoritesLensModel : public BaseLensModel
{
    Q_OBJECT
public:
    explicit FavoritesLensModel(LensInfoStorage *storage, QObject *parent = nullptr);

    // True when the list changed.
    bool setFavorite(const LensId &lensId, bool value);
    void setFavorites(const QStringList &ids);
    void clear();
};

} // namespace VCam
