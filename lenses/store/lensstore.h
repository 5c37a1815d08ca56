#pragma once

#include "lensid.h"
#include "lensinfo.h"

#include <QAbstractItemModel>
#include <QLoggingCategory>
#include <QUrl>
#include <QVariantMap>
#include <memory>
#include <set>
#include <store.h>
#include <vector>

Q_DECLARE_LOGGING_CATEGORY(lcLensStore)

class QTimer;

namespace Bureau {
class Dispatcher;
}

namespace VCam {

class BaseLensModel;
class FavoritesLensModel;
class LensCache;
class LensInfoStorage;
class LensProvider;
class NetworkManager;
class RecentsLensModel;
class RecentsLensProxyModel;

// The store of the "lenses" section: the current and acquired lens, the
// catalogue lists, favourites and recents, the lens cache settings and the
// lens hints. Turns lens actions into provider calls and hands acquired
// lenses to frame processing.
class LensStore : public Store
{
    Q_OBJECT
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString camera READ camera NOTIFY cameraChanged)
    Q_PROPERTY(QAbstractItemModel *featuredLensModel READ featuredLensModel CONSTANT)
    Q_PROPERTY(VCam::BaseLensModel *topCommunityLensModel READ topCommunityLensModel CONSTANT)
    Q_PROPERTY(VCam::BaseLensModel *searchLensModel READ searchLensModel CONSTANT)
    Q_PROPERTY(VCam::FavoritesLensModel *favoriteLensesModel READ favoriteLensesModel CONSTANT)
    Q_PROPERTY(VCam::RecentsLensProxyModel *recentsLensModel READ recentsLensModel CONSTANT)
    Q_PROPERTY(QVariantMap currentLens READ currentLens NOTIFY currentLensChanged)
    Q_PROPERTY(QUrl cacheDir READ cacheDir NOTIFY cacheDirChanged)
    Q_PROPERTY(QString cacheDirDisplayName READ cacheDirDisplayName NOTIFY cacheDirChanged)
    Q_PROPERTY(int cacheLimit READ cacheLimit NOTIFY cacheLimitChanged)
    Q_PROPERTY(bool initing READ initing NOTIFY isInitingChanged)
    Q_PROPERTY(bool fetching READ fetching NOTIFY isFetchingChanged)
    Q_PROPERTY(bool acquiring READ acquiring NOTIFY isAcquiringChanged)
    Q_PROPERTY(QString catalogueError READ catalogueError NOTIFY catalogueErrorChanged)
    Q_PROPERTY(QString searchError READ searchError NOTIFY searchErrorChanged)
    Q_PROPERTY(bool online READ online NOTIFY onlineChanged)
    Q_PROPERTY(QString lensError READ lensError NOTIFY lensErrorChanged)
public:
    // What the interface shows about the current lens.
    enum State { NoLens = 0, Acquiring = 1, Applied = 2, Failed = 3 };
    Q_ENUM(State)

    static constexpr int kRefreshIntervalMs = 600000;
    static constexpr int kCommunityPageSize = 50;

    // The store takes the provider as its child; cache, network and storage
    // must outlive it.
    LensStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, LensProvider *provider, LensCache *cache,
              NetworkManager *network, LensInfoStorage *storage, QObject *parent = nullptr);
    ~LensStore() override;

    State state() const { return m_state; }
    // Why the last lens chosen could not be put on; empty after a success.
    QString lensError() const { return m_lensError; }
    QString camera() const { return m_camera; }
    QAbstractItemModel *featuredLensModel() const;
    BaseLensModel *topCommunityLensModel() const { return m_community; }
    BaseLensModel *searchLensModel() const { return m_search; }
    FavoritesLensModel *favoriteLensesModel() const { return m_favorites; }
    RecentsLensProxyModel *recentsLensModel() const { return m_recentsProxy; }
    RecentsLensModel *recentsSourceModel() const { return m_recents; }
    QVariantMap currentLens() const;
    LensId currentLensId() const { return m_currentLensId; }
    LensId acquiredLensId() const { return m_acquiredLensId; }
    QUrl cacheDir() const;
    QString cacheDirDisplayName() const;
    int cacheLimit() const;
    bool initing() const { return m_initing; }
    bool fetching() const { return m_pendingFetches > 0; }
    bool acquiring() const { return m_acquiring; }
    QString catalogueError() const { return m_catalogueError; }
    QString searchError() const { return m_searchError; }
    bool online() const;
    QTimer *refreshTimer() const { return m_refreshTimer; }

    Q_INVOKABLE QVariantMap getLensInfo(const QString &lensId) const;
    LensInfo lensInfo(const LensId &lensId) const;
    Q_INVOKABLE bool isLensFavorite(const QString &lensId) const;
    Q_INVOKABLE void fetchCommunityLenses();
    Q_INVOKABLE QVariant lensData(const QString &lensId, int role) const;
    // The lens id a pasted lens link names ("uid" query item); empty if none.
    Q_INVOKABLE static QString lensIdFromLink(const QString &text);

    nlohmann::json saveSettings() const override;
    void loadSettings(const nlohmann::json &section) override;

    void setCurrentLens(const LensId &lensId);

public slots:
    // The engine's answer for a lens this store handed over (from the
    // camera store).
    void onLensLoadAnswered(const LensId &lensId, const QString &error);
    void process(std::shared_ptr<Bureau::Action> action) override;

signals:
    void stateChanged();
    void lensErrorChanged();
    void cameraChanged();
    void currentLensChanged();
    void cacheDirChanged();
    void cacheLimitChanged();
    void isFetchingChanged();
    void isFavoriteChanged(const QString &lensId, bool value);
    void showHintRequested(const QString &hint, bool autoHide = false);
    void hideHintRequested();
    void isAcquiringChanged();
    void isInitingChanged();
    void reportLensSuccess();
    void reportLensError(const QString &message);
    void catalogueErrorChanged();
    void searchErrorChanged();
    void onlineChanged();

private:
    void connectProvider();
    void dispatch(int type, QVariant payload = {});
    void onStarted();
    void onToggleLens(const QVariant &payload);
    void onTakeDownLens(const LensId &lensId);
    void onSearchFilter(const QString &filter);
    void onSetCacheDir(const QUrl &url);
    void onSaveGlintcode(const LensId &lensId, const QUrl &target);
    void onCopyLensLink(const LensId &lensId);
    void onReportLens(const LensId &lensId, const QString &description, int reportType);
    void showCleared();

    void onLensAcquired(const LensId &lensId, const QString &hintId);
    void setLensError(const QString &error);
    void onLensAcquireFailed(const LensId &lensId, const QString &reason);
    void onLensesInfo(const std::set<LensId> &invalidIds, const std::vector<LensInfo> &lenses);
    void onCommunityPage(const std::vector<LensInfo> &lenses);
    void onNetworkStateChanged(bool isOnline);
    void requestCatalogue();
    void refreshCurrentLens();
    void storeLenses(const std::vector<LensInfo> &lenses);
    void setAcquiring(bool value);
    void setState(State state);
    void beginFetch();
    void endFetch();
    void catalogueAnswered(const QString &error);
    void setCatalogueError(const QString &error);
    void setSearchError(const QString &error);

    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    LensProvider *m_provider;
    LensCache *m_cache;
    NetworkManager *m_network;
    LensInfoStorage *m_storage;
    BaseLensModel *m_featured;
    BaseLensModel *m_community;
    BaseLensModel *m_search;
    FavoritesLensModel *m_favorites;
    RecentsLensModel *m_recents;
    RecentsLensProxyModel *m_recentsProxy;
    QTimer *m_refreshTimer;

    State m_state = NoLens;
    // The lens the engine last reported running, and the reason of the last failure.
    LensId m_runningLensId = kInvalidLensId;
    QString m_lensError;
    QString m_camera;
    LensId m_currentLensId = kInvalidLensId;
    LensId m_acquiredLensId = kInvalidLensId;
    LensId m_linkLensId; // a lens asked for by its link, shown as the search result
    bool m_linkPending = false;
    QString m_searchFilter;
    QString m_catalogueError;
    QString m_searchError;
    bool m_acquiring = false;
    bool m_initing = true;
    int m_pendingInitAnswers = 2; // featured list and first community page
    int m_pendingFetches = 0;
    bool m_communityInFlight = false;
    bool m_started = false;
};

} // namespace VCam
