#include "lensstore.h"

#include "baselensmodel.h"
#include "favoriteslensmodel.h"
#include "lenscache.h"
#include "lensinfostorage.h"
#include "lensprovider.h"
#include "networkmanager.h"
#include "recentslensmodel.h"
#include "recentslensproxymodel.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QMetaEnum>
#include <QTimer>
#include <QUrlQuery>
#include <actiontypes.h>
#include <dispatcher.h>
#include <hinttable.h>
#include <lenscommand.h>
#include <popupmessage.h>

Q_LOGGING_CATEGORY(lcLensStore, "glint.lenses.store")

namespace VCam {

namespace {
const char *const kFavoritesKey = "favorites";
const char *const kRecentsKey = "recents";
constexpr int kMaxListedLenses = 1000;
const char *const kCacheKey = "cache";
const char *const kClearedText = "Application data cleared";
const char *const kLinkCopiedText = "Lens link copied";

QStringList idsOf(const std::vector<LensInfo> &lenses)
{
    QStringList ids;
    for (const LensInfo &info : lenses)
        ids << info.lensId;
    return ids;
}

LensId lensIdOf(const QVariant &payload)
{
    if (payload.canConvert<LensCommand>() && payload.userType() == qMetaTypeId<LensCommand>())
        return payload.value<LensCommand>().lensId;
    return payload.toString();
}
} // namespace

LensStore::LensStore(std::shared_ptr<Bureau::Dispatcher> dispatcher, LensProvider *provider, LensCache *cache,
                     NetworkManager *network, LensInfoStorage *storage, QObject *parent)
    : Store(parent), m_dispatcher(std::move(dispatcher)), m_provider(provider), m_cache(cache),
      m_network(network), m_storage(storage), m_featured(new BaseLensModel(storage, this)),
      m_community(new BaseLensModel(storage, this)), m_search(new BaseLensModel(storage, this)),
      m_favorites(new FavoritesLensModel(storage, this)), m_recents(new RecentsLensModel(storage, this)),
      m_recentsProxy(new RecentsLensProxyModel(m_recents, this)), m_refreshTimer(new QTimer(this))
{
    m_provider->setParent(this);
    m_refreshTimer->setInterval(kRefreshIntervalMs);
    connect(m_refreshTimer, &QTimer::timeout, this, &LensStore::refreshCurrentLens);
    connect(m_community, &BaseLensModel::fetchMoreRequested, this, &LensStore::fetchCommunityLenses);
    connect(m_storage, &LensInfoStorage::lensUpdated, this, [this](const LensId &lensId) {
        if (lensId == m_currentLensId)
            emit currentLensChanged();
    });
    connect(m_storage, &LensInfoStorage::lensAdded, this, [this](const LensId &lensId) {
        if (lensId == m_currentLensId)
            emit currentLensChanged();
    });
    connectProvider();
    connect(m_network, &NetworkManager::networkStateChanged, this, &LensStore::onNetworkStateChanged);
}

LensStore::~LensStore() = default;

void LensStore::connectProvider()
{
    connect(m_provider, &LensProvider::scheduledLensesSuccess, this, [this](const auto &lenses) {
        storeLenses(lenses);
        m_featured->setLensIds(idsOf(lenses));
        catalogueAnswered({});
    });
    connect(m_provider, &LensProvider::scheduledLensesFailure, this, [this](const QString &reason) {
        qCWarning(lcLensStore).noquote() << reason;
        catalogueAnswered(reason);
    });
    connect(m_provider, &LensProvider::communityLensesSuccess, this, &LensStore::onCommunityPage);
    connect(m_provider, &LensProvider::communityLensesFailure, this, [this](const QString &reason) {
        qCWarning(lcLensStore).noquote() << reason;
        m_communityInFlight = false;
        // A later scroll to the end may try the page again.
        m_community->setCanLoadMore(m_community->rowCount() > 0);
        catalogueAnswered(reason);
    });
    connect(m_provider, &LensProvider::lensSearchSuccess, this,
            [this](const QString &filter, const auto &lenses) {
                endFetch();
                if (filter != m_searchFilter)
                    return; // the user typed on since
                storeLenses(lenses);
                m_search->setLensIds(idsOf(lenses));
                setSearchError({});
            });
    connect(m_provider, &LensProvider::lensSearchFailure, this,
            [this](const QString &filter, const QString &reason) {
                endFetch();
                qCWarning(lcLensStore).noquote() << reason;
                if (filter == m_searchFilter)
                    setSearchError(reason);
            });
    connect(m_provider, &LensProvider::lensesInfoSuccess, this, &LensStore::onLensesInfo);
    connect(m_provider, &LensProvider::lensesInfoFailure, this,
            [this](const std::vector<LensId> &ids, const QString &reason) {
                qCWarning(lcLensStore).noquote() << reason;
                if (m_linkPending && std::find(ids.begin(), ids.end(), m_linkLensId) != ids.end()) {
                    m_linkPending = false;
                    endFetch();
                    setSearchError(reason);
                }
            });
    connect(m_provider, &LensProvider::lensAcquireSuccess, this, &LensStore::onLensAcquired);
    connect(m_provider, &LensProvider::lensAcquireFailure, this, &LensStore::onLensAcquireFailed);
}

void LensStore::dispatch(int type, QVariant payload)
{
    m_dispatcher->dispatch(new Bureau::Action(type, std::move(payload)));
}

QAbstractItemModel *LensStore::featuredLensModel() const
{
    return m_featured;
}

QVariantMap LensStore::currentLens() const
{
    if (m_currentLensId == kInvalidLensId)
        return {};
    return m_storage->toVariantMap(m_currentLensId);
}

QUrl LensStore::cacheDir() const
{
    return QUrl::fromLocalFile(m_cache->rootPath());
}

QString LensStore::cacheDirDisplayName() const
{
    return QDir::toNativeSeparators(m_cache->rootPath());
}

int LensStore::cacheLimit() const
{
    return int(m_cache->limit() / LensCache::kMebibyte);
}

QVariantMap LensStore::getLensInfo(const QString &lensId) const
{
    return m_storage->toVariantMap(lensId);
}

LensInfo LensStore::lensInfo(const LensId &lensId) const
{
    return m_storage->info(lensId);
}

bool LensStore::isLensFavorite(const QString &lensId) const
{
    return m_storage->isFavorite(lensId);
}

QVariant LensStore::lensData(const QString &lensId, int role) const
{
    if (role == RecentsLensModel::LastActivatedTimeRole)
        return m_recents->lastActivated(lensId);
    return m_storage->data(lensId, role);
}

QString LensStore::lensIdFromLink(const QString &text)
{
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
        return {};
    const QString id = QUrlQuery(url).queryItemValue(QStringLiteral("uid"));
    return LensCache::isValidLensId(id) ? id : QString();
}

void LensStore::fetchCommunityLenses()
{
    // One page at a time: a view asking again while a page is on its way
    // gets that page.
    if (m_communityInFlight)
        return;
    m_communityInFlight = true;
    m_community->setCanLoadMore(false);
    beginFetch();
    m_provider->requestCommunityLenses(m_community->rowCount());
}

nlohmann::json LensStore::saveSettings() const
{
    auto favorites = nlohmann::json::array();
    for (const QString &id : m_favorites->lensIds())
        favorites.push_back(id.toStdString());
    return {{kFavoritesKey, favorites}, {kRecentsKey, m_recents->toJson()}, {kCacheKey, m_cache->save()}};
}

void LensStore::loadSettings(const nlohmann::json &section)
{
    if (!section.is_object())
        return;
    // Favourites are read up to a length far beyond real use: a file with
    // hundreds of thousands of them must not hold up the start.
    QStringList favorites;
    if (section.contains(kFavoritesKey) && section[kFavoritesKey].is_array()) {
        for (const auto &id : section[kFavoritesKey]) {
            if (favorites.size() >= kMaxListedLenses)
                break;
            if (id.is_string())
                favorites << QString::fromStdString(id.get<std::string>());
        }
    }
    m_favorites->setFavorites(favorites);
    // The recents keep only their few newest entries as they are read.
    if (section.contains(kRecentsKey))
        m_recents->fromJson(section[kRecentsKey]);
    if (section.contains(kCacheKey) && section[kCacheKey].is_object()) {
        m_cache->load(section[kCacheKey]);
        emit cacheDirChanged();
        emit cacheLimitChanged();
    }
}

void LensStore::setCurrentLens(const LensId &lensId)
{
    m_currentLensId = lensId;
    setLensError(QString());
    if (lensId == kInvalidLensId) {
        m_acquiredLensId = kInvalidLensId;
        m_runningLensId = kInvalidLensId;
        m_cache->setActiveLens(kInvalidLensId);
        LensCommand command;
        dispatch(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(command));
        m_refreshTimer->stop();
        setAcquiring(false);
        setState(NoLens);
    } else {
        setAcquiring(true);
        setState(Acquiring);
        m_recents->activate(lensId);
        m_provider->acquireLens(lensId);
    }
    emit currentLensChanged();
}

void LensStore::process(std::shared_ptr<Bureau::Action> action)
{
    if (action->type > int(ActionType::HideLensHint))
        return;
    const QVariant &payload = action->payload;
    const auto command = payload.value<LensCommand>();
    switch (static_cast<ActionType>(action->type)) {
    case ActionType::Started:
        onStarted();
        break;
    case ActionType::SetInputCamera:
        if (m_camera != payload.toString()) {
            m_camera = payload.toString();
            emit cameraChanged();
        }
        break;
    case ActionType::SetActiveLensId:
        setCurrentLens(command.lensId);
        dispatch(int(ActionType::ActiveLensChanged), QVariant::fromValue(m_storage->info(command.lensId)));
        break;
    case ActionType::SetLensFavorite:
        if (m_favorites->setFavorite(command.lensId, command.enabled)) {
            emit isFavoriteChanged(command.lensId, command.enabled);
            if (command.lensId == m_currentLensId)
                emit currentLensChanged();
        }
        break;
    case ActionType::SetSearchFilter:
        onSearchFilter(payload.toString());
        break;
    case ActionType::ToggleLens:
        onToggleLens(payload);
        break;
    case ActionType::TakeDownLens:
        onTakeDownLens(lensIdOf(payload));
        break;
    case ActionType::NotifyRecentsOpened:
        m_recents->setShown(true);
        break;
    case ActionType::NotifyRecentsClosed:
        m_recents->setShown(false);
        break;
    case ActionType::SetCacheLimit:
        if (payload.toInt() != cacheLimit()) {
            m_cache->setLimit(qBound<qint64>(0, payload.toLongLong(), LensCache::kMaxLimitMebibytes) *
                              LensCache::kMebibyte);
            emit cacheLimitChanged();
        }
        break;
    case ActionType::SetCacheDir:
        onSetCacheDir(payload.toUrl());
        break;
    case ActionType::ClearCache:
        m_cache->evict(0);
        showCleared();
        break;
    case ActionType::ClearFavorites:
        m_favorites->clear();
        showCleared();
        break;
    case ActionType::ClearRecents:
        m_recents->clear();
        showCleared();
        break;
    case ActionType::SaveGlintcode:
        onSaveGlintcode(command.lensId, command.url);
        break;
    case ActionType::CopyLensLink:
        onCopyLensLink(command.lensId);
        break;
    case ActionType::ReportLens:
        onReportLens(command.lensId, command.text, command.kind);
        break;
    case ActionType::ShowLensHint:
        emit showHintRequested(HintTable::text(payload.toString()), false);
        break;
    case ActionType::HideLensHint:
        emit hideHintRequested();
        break;
    default:
        break;
    }
}

void LensStore::onStarted()
{
    std::vector<LensId> known;
    for (const QStringList &ids : {m_favorites->lensIds(), m_recents->lensIds()})
        for (const QString &id : ids)
            if (std::find(known.begin(), known.end(), id) == known.end())
                known.push_back(id);
    if (!known.empty())
        m_provider->requestLensesInfo(known);
    m_started = true;
    requestCatalogue();
    dispatch(int(ActionType::NotifyFavoriteLensesCounted), m_favorites->rowCount());
}

void LensStore::requestCatalogue()
{
    beginFetch();
    m_provider->requestScheduledLenses();
    fetchCommunityLenses();
}

bool LensStore::online() const
{
    return m_network->isOnline();
}

void LensStore::onNetworkStateChanged(bool isOnline)
{
    emit onlineChanged();
    // Lists that failed while the backend was out of reach are asked for
    // again once it answers.
    if (isOnline && m_started && !m_catalogueError.isEmpty() && !fetching())
        requestCatalogue();
}

void LensStore::onToggleLens(const QVariant &payload)
{
    const LensId target = m_currentLensId == kInvalidLensId ? m_recents->mostRecent() : kInvalidLensId;
    if (target == m_currentLensId)
        return;
    LensCommand command;
    command.lensId = target;
    command.context = payload.value<LensActionContext>();
    dispatch(int(ActionType::SetActiveLensId), QVariant::fromValue(command));
}

void LensStore::onTakeDownLens(const LensId &lensId)
{
    if (lensId == m_currentLensId)
        setCurrentLens(kInvalidLensId);
    m_cache->remove(lensId);
    m_storage->remove(lensId);
}

void LensStore::onSearchFilter(const QString &filter)
{
    if (filter.trimmed().isEmpty())
        return;
    m_searchFilter = filter;
    if (m_linkPending) {
        // The answer for an earlier link no longer counts.
        m_linkPending = false;
        endFetch();
    }
    beginFetch();
    const QString linked = lensIdFromLink(filter);
    if (!linked.isEmpty()) {
        // A pasted lens link unlocks that one lens: its record is the result.
        m_linkLensId = linked;
        m_linkPending = true;
        m_provider->requestLensesInfo({linked});
        return;
    }
    m_provider->searchLenses(filter);
}

void LensStore::onSetCacheDir(const QUrl &url)
{
    const QString path = url.toLocalFile();
    if (path.isEmpty() || QDir(path).absolutePath() == QDir(m_cache->rootPath()).absolutePath())
        return;
    if (!m_cache->changeRoot(path)) {
        const QString text =
            QStringLiteral("This folder can't hold the lens cache: %1").arg(m_cache->problem());
        dispatch(int(ActionType::ShowPopupMessage),
                 QVariant::fromValue(PopupMessage{text, MessageType::Warning}));
        return;
    }
    emit cacheDirChanged();
}

void LensStore::onSaveGlintcode(const LensId &lensId, const QUrl &target)
{
    const QString url = m_storage->info(lensId).glintcodeUrl;
    const QString path = target.isLocalFile() ? target.toLocalFile() : target.toString();
    if (url.isEmpty()) {
        qCWarning(lcLensStore).noquote() << "Can't download glintcode:"
                                         << "no code image for lens" << lensId;
        return;
    }
    m_network->download(QUrl(url), [path](int status, const QByteArray &body, const QString &error) {
        if (!error.isEmpty() || status != 200) {
            qCWarning(lcLensStore).noquote()
                << "Can't download glintcode:" << (error.isEmpty() ? QString("HTTP %1").arg(status) : error);
            return;
        }
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size())
            qCWarning(lcLensStore).noquote() << "Can't save glintcode:" << file.errorString();
    });
}

void LensStore::onCopyLensLink(const LensId &lensId)
{
    QGuiApplication::clipboard()->setText(m_storage->info(lensId).deeplink);
    dispatch(int(ActionType::ShowPopupMessage),
             QVariant::fromValue(PopupMessage{QString::fromLatin1(kLinkCopiedText), MessageType::Info}));
}

void LensStore::onReportLens(const LensId &lensId, const QString &description, int reportType)
{
    const char *typeKey = QMetaEnum::fromType<LensReportType>().valueToKey(reportType);
    const QString context =
        QStringLiteral("%1: %2").arg(QString::fromLatin1(typeKey ? typeKey : "Unknown"), description);
    m_network->reportLens(lensId, context, [this](int status, const QByteArray &, const QString &error) {
        if (error.isEmpty() && status >= 200 && status < 300) {
            emit reportLensSuccess();
            return;
        }
        const QString message = error.isEmpty() ? QStringLiteral("HTTP status %1").arg(status) : error;
        qCWarning(lcLensStore).noquote() << "Report error: " + message;
        emit reportLensError(message);
    });
}

void LensStore::showCleared()
{
    dispatch(int(ActionType::ShowPopupMessage),
             QVariant::fromValue(PopupMessage{QString::fromLatin1(kClearedText), MessageType::Info}));
}

void LensStore::onLensAcquired(const LensId &lensId, const QString &hintId)
{
    if (lensId != m_currentLensId)
        return;
    setAcquiring(false);
    // The lens counts as applied once the engine says it runs.
    if (lensId == m_acquiredLensId) {
        if (lensId == m_runningLensId)
            setState(Applied);
        return;
    }
    m_acquiredLensId = lensId;
    m_cache->setActiveLens(lensId);
    LensCommand command;
    command.lensId = lensId;
    command.text = m_cache->lensPath(lensId);
    dispatch(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(command));
    emit showHintRequested(HintTable::text(hintId), true);
    dispatch(int(ActionType::SetMainLensHint), hintId);
    refreshCurrentLens();
    m_refreshTimer->start();
}

void LensStore::onLensLoadAnswered(const LensId &lensId, const QString &error)
{
    if (lensId != m_acquiredLensId)
        return; // the answer for a lens the user has since left
    if (error.isEmpty()) {
        m_runningLensId = lensId;
        setLensError(QString());
        setState(Applied);
        return;
    }
    qCWarning(lcLensStore).noquote() << "Lens" << lensId << "failed to load:" << error;
    // Back to what ran before, with the reason shown on the card. The engine
    // dropped the old effect when it tried the new one, so it gets it again.
    const LensId previous = m_runningLensId;
    setLensError(QStringLiteral("This lens could not be loaded: %1").arg(error));
    m_currentLensId = previous;
    m_acquiredLensId = previous;
    m_cache->setActiveLens(previous);
    if (previous == kInvalidLensId) {
        m_refreshTimer->stop();
        setState(NoLens);
    } else {
        LensCommand command;
        command.lensId = previous;
        command.text = m_cache->lensPath(previous);
        dispatch(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(command));
        setState(Applied);
    }
    emit currentLensChanged();
}

void LensStore::setLensError(const QString &error)
{
    if (error == m_lensError)
        return;
    m_lensError = error;
    emit lensErrorChanged();
}

void LensStore::onLensAcquireFailed(const LensId &lensId, const QString &reason)
{
    qCWarning(lcLensStore).noquote() << "Lens" << lensId << "could not be acquired:" << reason;
    if (lensId != m_currentLensId)
        return;
    setAcquiring(false);
    setState(Failed);
    dispatch(int(ActionType::ShowPopupMessage),
             QVariant::fromValue(PopupMessage{reason, MessageType::Warning}));
}

void LensStore::onLensesInfo(const std::set<LensId> &invalidIds, const std::vector<LensInfo> &lenses)
{
    storeLenses(lenses);
    for (const LensId &id : invalidIds)
        m_storage->remove(id);
    if (!m_linkPending)
        return;
    const QStringList ids = idsOf(lenses);
    if (!ids.contains(m_linkLensId) && invalidIds.count(m_linkLensId) == 0)
        return; // the answer of another request
    m_linkPending = false;
    endFetch();
    m_search->setLensIds(ids.contains(m_linkLensId) ? QStringList{m_linkLensId} : QStringList{});
    setSearchError(ids.contains(m_linkLensId) ? QString() : QStringLiteral("No lens has this link"));
}

void LensStore::onCommunityPage(const std::vector<LensInfo> &lenses)
{
    m_communityInFlight = false;
    storeLenses(lenses);
    m_community->appendLensIds(idsOf(lenses));
    m_community->setCanLoadMore(int(lenses.size()) >= kCommunityPageSize);
    catalogueAnswered({});
}

void LensStore::refreshCurrentLens()
{
    if (m_currentLensId == kInvalidLensId)
        return;
    m_provider->requestLensesInfo({m_currentLensId});
}

void LensStore::storeLenses(const std::vector<LensInfo> &lenses)
{
    for (const LensInfo &info : lenses)
        m_storage->insert(info);
}

void LensStore::setAcquiring(bool value)
{
    if (value == m_acquiring)
        return;
    m_acquiring = value;
    emit isAcquiringChanged();
}

void LensStore::setState(State state)
{
    if (state == m_state)
        return;
    m_state = state;
    emit stateChanged();
}

void LensStore::beginFetch()
{
    if (++m_pendingFetches == 1)
        emit isFetchingChanged();
}

void LensStore::endFetch()
{
    if (m_pendingFetches > 0 && --m_pendingFetches == 0)
        emit isFetchingChanged();
}

void LensStore::catalogueAnswered(const QString &error)
{
    endFetch();
    setCatalogueError(error);
    if (m_initing && --m_pendingInitAnswers <= 0) {
        m_initing = false;
        emit isInitingChanged();
    }
}

void LensStore::setCatalogueError(const QString &error)
{
    // A failed list may mean the backend is out of reach: the client then
    // checks until it answers again, and the lists are asked for anew.
    if (!error.isEmpty() && m_network->isOnline())
        m_network->updateNetworkStatus();
    if (error == m_catalogueError)
        return;
    m_catalogueError = error;
    emit catalogueErrorChanged();
}

void LensStore::setSearchError(const QString &error)
{
    if (error == m_searchError)
        return;
    m_searchError = error;
    emit searchErrorChanged();
}

} // namespace VCam
