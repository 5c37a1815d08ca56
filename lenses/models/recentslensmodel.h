#pragma once

#include "baselensmodel.h"

#include <QDateTime>
#include <QHash>
#include <nlohmann/json.hpp>

namespace VCam {

// The lenses used last, most recent first, each with the time of its last
// activation. While the list is shown, activations are held back and
// applied when it is hidden, so rows never jump under the user's pointer.
class RecentsLensModel : public BaseLensModel
{
    Q_OBJECT
public:
    enum Role { LastActivatedTimeRole = Qt::UserRole + 11 };
    static constexpr int kMaxRecents = 20;

    explicit RecentsLensModel(LensInfoStorage *storage, QObject *parent = nullptr);

    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    void activate(const LensId &lensId, const QDateTime &when = QDateTime::currentDateTimeUtc());
    void setShown(bool shown);
    bool isShown() const { return m_shown; }

    // The lens activated last (held-back activations count); "-1" when none.
    LensId mostRecent() const;
    QDateTime lastActivated(const LensId &lensId) const { return m_times.value(lensId); }
    void clear();

    // [{"lensId": id, "timestamp": ms since the epoch}, ...]
    nlohmann::json toJson() const;
    void fromJson(const nlohmann::json &array);

private:
    void apply(const LensId &lensId, const QDateTime &when);

    QHash<LensId, QDateTime> m_times;
    QList<QPair<LensId, QDateTime>> m_pending;
    bool m_shown = false;
};

} // namespace VCam
