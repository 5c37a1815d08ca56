#include "networklensprovider.h"

#include "networklensacquirehelper.h"
#include "networkmanager.h"

#include <QPointer>

Q_LOGGING_CATEGORY(lcLensProvider, "glint.lenses.provider")

namespace VCam {

namespace {

using nlohmann::json;

json parseObject(const QByteArray &body, QString *reason)
{
    json answer = json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
    if (answer.is_discarded())
        *reason = QStringLiteral("the answer is not JSON");
    else if (!answer.is_object())
        *reason = QStringLiteral("the answer is not a JSON object");
    return answer;
}

} // namespace

NetworkLensProvider::NetworkLensProvider(NetworkManager *network, const QString &cacheRoot,
                                         const QString &verificationKey, QObject *parent)
    : LensProvider(parent), m_network(network), m_cache(cacheRoot, verificationKey),
      m_helper(new NetworkLensAcquireHelper(network, &m_cache, this))
{
    m_helper->setBundledLenses(&m_bundled);
    connect(m_helper, &NetworkLensAcquireHelper::lensAcquireSucceed, this, &LensProvider::lensAcquireSuccess);
    connect(m_helper, &NetworkLensAcquireHelper::lensAcquireFailed, this, &LensProvider::lensAcquireFailure);
    connect(m_helper, &NetworkLensAcquireHelper::lensDownloadSucceed, this,
            &NetworkLensProvider::lensDownloadSucceed);
    connect(m_helper, &NetworkLensAcquireHelper::lensDownloadFailed, this,
            &NetworkLensProvider::lensDownloadFailed);
}

NetworkLensProvider::~NetworkLensProvider() = default;

bool NetworkLensProvider::parseLenses(const QByteArray &body, std::vector<LensInfo> &lenses, QString *reason)
{
    const json answer = parseObject(body, reason);
    if (!reason->isEmpty())
        return false;
    const auto list = answer.find("lenses");
    if (list == answer.end() || !list->is_array()) {
        *reason = QStringLiteral("no \"lenses\" array in the answer");
        return false;
    }
    lenses.clear();
    lenses.reserve(list->size());
    for (const json &item : *list) {
        LensInfo info;
        std::string error;
        if (!LensInfo::fromJson(item, info, &error)) {
            *reason = QStringLiteral("Unexpected LensInfo format: %1").arg(QString::fromStdString(error));
            lenses.clear();
            return false;
        }
        lenses.push_back(std::move(info));
    }
    return true;
}

Request::Completion NetworkLensProvider::listCompletion(const QString &failureText, ListHandler onSuccess,
                                                        FailureHandler onFailure)
{
    // Answers that arrive after the provider is gone are dropped.
    QPointer<NetworkLensProvider> self(this);
    return [self, failureText, onSuccess, onFailure](int status, const QByteArray &body,
                                                     const QString &failure) {
        if (!self)
            return;
        if (!failure.isEmpty() || status / 100 != 2) {
            onFailure(
                failureText.arg(failure.isEmpty() ? QStringLiteral("HTTP status %1").arg(status) : failure));
            return;
        }
        std::vector<LensInfo> lenses;
        QString reason;
        if (!parseLenses(body, lenses, &reason)) {
            // A malformed record fails the answer with its own text.
            onFailure(reason.startsWith(QLatin1String("Unexpected LensInfo")) ? reason
                                                                              : failureText.arg(reason));
            return;
        }
        onSuccess(std::move(lenses), body);
    };
}

void NetworkLensProvider::requestScheduledLenses()
{
    m_network->requestScheduledLenses(listCompletion(
        QStringLiteral("Failed to receive scheduled lenses: %1"),
        [this](std::vector<LensInfo> &&lenses, const QByteArray &) { emit scheduledLensesSuccess(lenses); },
        [this](const QString &reason) {
            // Without the catalogue the featured list offers the lenses that
            // ship with the program, marked as bundled.
            if (!m_bundled.lenses().empty()) {
                qCInfo(lcLensProvider).noquote() << reason << "- offering the bundled lenses";
                emit scheduledLensesSuccess(m_bundled.lenses());
                return;
            }
            emit scheduledLensesFailure(reason);
        }));
}

void NetworkLensProvider::requestCommunityLenses(int offset)
{
    m_network->requestTopLenses(offset, kCommunityPageSize,
                                listCompletion(
                                    QStringLiteral("Failed to receive community lenses: %1"),
                                    [this](std::vector<LensInfo> &&lenses, const QByteArray &) {
                                        emit communityLensesSuccess(lenses);
                                    },
                                    [this](const QString &reason) { emit communityLensesFailure(reason); }));
}

void NetworkLensProvider::searchLenses(const QString &filter)
{
    m_network->searchLenses(
        filter, listCompletion(
                    QStringLiteral("Failed to search for lenses: %1"),
                    [this, filter](std::vector<LensInfo> &&lenses, const QByteArray &) {
                        emit lensSearchSuccess(filter, lenses);
                    },
                    [this, filter](const QString &reason) { emit lensSearchFailure(filter, reason); }));
}

// Ids are invalid when the answer lists them under "invalid_ids" or when no
// record came back for them.
void NetworkLensProvider::requestLensesInfo(const std::vector<LensId> &ids)
{
    auto onSuccess = [this, ids](std::vector<LensInfo> &&lenses, const QByteArray &body) {
        std::set<LensId> invalid(ids.begin(), ids.end());
        for (const LensInfo &info : lenses)
            invalid.erase(info.lensId);
        const json answer = json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
        const auto marked = answer.find("invalid_ids");
        if (marked != answer.end() && marked->is_array()) {
            for (const json &id : *marked) {
                if (id.is_string())
                    invalid.insert(QString::fromStdString(id.get<std::string>()));
            }
        }
        emit lensesInfoSuccess(invalid, lenses);
    };
    m_network->requestLenses(
        ids, listCompletion(QStringLiteral("Failed to receive lenses info: %1"), onSuccess,
                            [this, ids](const QString &reason) { emit lensesInfoFailure(ids, reason); }));
}

void NetworkLensProvider::acquireLens(const LensId &lensId)
{
    m_helper->acquire(lensId);
}

void NetworkLensProvider::markLensStale(const LensId &lensId)
{
    m_helper->markStale(lensId);
}

} // namespace VCam
