#pragma once

#include "bundledlenses.h"
#include "lenscache.h"
#include "lensprovider.h"
#include "request.h"

#include <QLoggingCategory>
#include <memory>

Q_DECLARE_LOGGING_CATEGORY(lcLensProvider)

namespace VCam {

class NetworkManager;
class NetworkLensAcquireHelper;

// The lens provider over the backend client. Owns the lens cache and the
// one acquisition helper.
class NetworkLensProvider : public LensProvider
{
    Q_OBJECT
public:
    static constexpr int kCommunityPageSize = 50;

    // cacheRoot: the cache folder used until settings name another one;
    // verificationKey: base64 DER public key that signs lens folders.
    NetworkLensProvider(NetworkManager *network, const QString &cacheRoot, const QString &verificationKey,
                        QObject *parent = nullptr);
    ~NetworkLensProvider() override;

    void requestScheduledLenses() override;
    void requestCommunityLenses(int offset) override;
    void searchLenses(const QString &filter) override;
    void requestLensesInfo(const std::vector<LensId> &ids) override;
    void acquireLens(const LensId &lensId) override;

    // The next acquisition of lensId downloads it again.
    void markLensStale(const LensId &lensId);

    LensCache &cache() { return m_cache; }
    NetworkLensAcquireHelper *acquireHelper() const { return m_helper; }

    // Reads the "lenses" array of an answer; false with the failure text.
    static bool parseLenses(const QByteArray &body, std::vector<LensInfo> &lenses, QString *reason);

signals:
    void lensDownloadSucceed(const VCam::LensId &lensId);
    void lensDownloadFailed(const VCam::LensId &lensId, const QString &reason);

private:
    using ListHandler = std::function<void(std::vector<LensInfo> &&lenses, const QByteArray &body)>;
    using FailureHandler = std::function<void(const QString &reason)>;
    Request::Completion listCompletion(const QString &failureText, ListHandler onSuccess,
                                       FailureHandler onFailure);

    NetworkManager *m_network;
    LensCache m_cache;
    NetworkLensAcquireHelper *m_helper;
    BundledLenses m_bundled;
};

} // namespace VCam
