#pragma once

#include "lensid.h"
#include "lensinfo.h"

#include <QObject>
#include <set>
#include <vector>

namespace VCam {

// Where the lens store gets lenses from: the featured list, pages of
// community lenses, search results, fresh records of known lenses, and
// lenses acquired onto the disk. Every request is answered by exactly one
// of its two signals; nothing blocks.
class LensProvider : public QObject
{
    Q_OBJECT
public:
    explicit LensProvider(QObject *parent = nullptr);

    virtual void requestScheduledLenses() = 0;
    virtual void requestCommunityLenses(int offset) = 0;
    virtual void searchLenses(const QString &filter) = 0;
    virtual void requestLensesInfo(const std::vector<LensId> &ids) = 0;
    virtual void acquireLens(const LensId &lensId) = 0;

signals:
    void scheduledLensesSuccess(const std::vector<VCam::LensInfo> &lenses);
    void scheduledLensesFailure(const QString &reason);
    void communityLensesSuccess(const std::vector<VCam::LensInfo> &lenses);
    void communityLensesFailure(const QString &reason);
    void lensSearchSuccess(const QString &filter, const std::vector<VCam::LensInfo> &lenses);
    void lensSearchFailure(const QString &filter, const QString &reason);
    void lensesInfoSuccess(const std::set<VCam::LensId> &invalidIds,
                           const std::vector<VCam::LensInfo> &lensInfos);
    void lensesInfoFailure(const std::vector<VCam::LensId> &ids, const QString &reason);
    void lensAcquireSuccess(const VCam::LensId &lensId, const QString &hintId);
    void lensAcquireFailure(const VCam::LensId &lensId, const QString &reason);
};

} // namespace VCam

Q_DECLARE_METATYPE(std::vector<VCam::LensInfo>)
Q_DECLARE_METATYPE(std::set<VCam::LensId>)
Q_DECLARE_METATYPE(std::vector<VCam::LensId>)
