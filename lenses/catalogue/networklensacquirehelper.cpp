#include "networklensacquirehelper.h"

#include "bundledlenses.h"
#include "lenscache.h"
#include "networkmanager.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <nlohmann/json.hpp>

Q_LOGGING_CATEGORY(lcLensAcquire, "glint.lenses.acquire")

namespace VCam {

namespace {

QString stringMember(const nlohmann::json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? QString::fromStdString(it->get<std::string>()) : QString();
}

// Archives come over https, or over plain http from a backend on this
// machine; never from files, other schemes or plain http elsewhere.
bool isAllowedArchiveUrl(const QUrl &url)
{
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString scheme = url.scheme().toLower();
    if (scheme == QLatin1String("https"))
        return true;
    if (scheme != QLatin1String("http"))
        return false;
    const QString host = url.host().toLower();
    return host == QLatin1String("localhost") || QHostAddress(host).isLoopback();
}

} // namespace

NetworkLensAcquireHelper::NetworkLensAcquireHelper(NetworkManager *network, LensCache *cache, QObject *parent)
    : QObject(parent), m_network(network), m_cache(cache), m_deadline(new QTimer(this))
{
    m_deadline->setSingleShot(true);
    m_deadline->setInterval(kDefaultDeadlineMs);
    connect(m_deadline, &QTimer::timeout, this, [this] {
        if (m_stage == LinkRequested || m_stage == ArchiveDownloading) {
            const int seconds = m_deadline->interval() / 1000;
            ++m_generation; // whatever still arrives for it is dropped
            finish(QStringLiteral("Failed to download lens archive: no answer within %1 s").arg(seconds));
        }
    });
}

void NetworkLensAcquireHelper::setDeadline(int ms)
{
    m_deadline->setInterval(ms);
}

void NetworkLensAcquireHelper::reset()
{
    ++m_generation; // answers for the acquisition in flight are dropped
    m_deadline->stop();
    m_stage = Idle;
    m_lensUrl.clear();
    m_signature.clear();
    m_hintId.clear();
}

void NetworkLensAcquireHelper::acquire(const LensId &lensId)
{
    reset();
    m_lensId = lensId;
    if (!LensCache::isValidLensId(lensId)) {
        finish(QStringLiteral("Invalid lens id: %1").arg(lensId));
        return;
    }
    if (m_staleLenses.remove(lensId)) {
        m_cache->remove(lensId);
    } else if (m_cache->verify(lensId, true)) {
        m_cache->touch(lensId);
        m_hintId = m_cache->hintId(lensId);
        finish(QString());
        return;
    }
    requestLink();
}

void NetworkLensAcquireHelper::requestLink()
{
    m_stage = LinkRequested;
    m_deadline->start(); // one limit for link, download and unpacking together
    const quint64 generation = m_generation;
    QPointer<NetworkLensAcquireHelper> self(this);
    m_network->requestUnlock(m_lensId,
                             [self, generation](int status, const QByteArray &body, const QString &failure) {
                                 if (self && self->m_generation == generation)
                                     self->onLinkAnswer(status, body, failure);
                             });
}

void NetworkLensAcquireHelper::onLinkAnswer(int status, const QByteArray &body, const QString &failure)
{
    // Unreachable backend (no HTTP answer): a bundled lens comes from its
    // own archive, checked like a downloaded one.
    if (status == 0 && !failure.isEmpty() && installBundled())
        return;
    if (!failure.isEmpty() || status / 100 != 2) {
        const QString reason = failure.isEmpty() ? QStringLiteral("HTTP status %1").arg(status) : failure;
        finish(QStringLiteral("Failed to receive lens archive link: %1").arg(reason));
        return;
    }
    const auto json = nlohmann::json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
    if (!json.is_object()) {
        finish(QStringLiteral("Failed to parse lens archive link"));
        return;
    }
    const auto url = json.find("lens_url");
    if (url == json.end() || !url->is_string()) {
        finish(QStringLiteral("Failed to parse lens archive link: No 'lens_url' in JSON"));
        return;
    }
    m_lensUrl = QString::fromStdString(url->get<std::string>());
    if (!isAllowedArchiveUrl(QUrl(m_lensUrl))) {
        finish(
            QStringLiteral("Failed to parse lens archive link: %1 is not an https address").arg(m_lensUrl));
        return;
    }
    m_signature = stringMember(json, "signature");
    m_hintId = stringMember(json, "hint_id");

    m_stage = ArchiveDownloading;
    const quint64 generation = m_generation;
    QPointer<NetworkLensAcquireHelper> self(this);
    m_network->download(QUrl(m_lensUrl),
                        [self, generation](int, const QByteArray &archive, const QString &error) {
                            if (self && self->m_generation == generation)
                                self->onArchiveAnswer(archive, error);
                        });
}

void NetworkLensAcquireHelper::onArchiveAnswer(const QByteArray &body, const QString &failure)
{
    if (body.isNull()) {
        finish(QStringLiteral("Failed to download lens archive: %1").arg(failure));
        return;
    }
    finish(installArchive(body));
}

bool NetworkLensAcquireHelper::installBundled()
{
    if (!m_bundled || !m_bundled->contains(m_lensId))
        return false;
    const QByteArray archive = m_bundled->archive(m_lensId);
    if (archive.isNull())
        return false;
    qCInfo(lcLensAcquire).noquote() << "Catalogue unreachable: installing the bundled lens" << m_lensId;
    m_signature = m_bundled->signature(m_lensId);
    m_hintId.clear();
    finish(installArchive(archive));
    return true;
}

// Writes, unpacks, deletes and registers the archive; the error text, or an
// empty text when the lens is in the cache and verified.
QString NetworkLensAcquireHelper::installArchive(const QByteArray &body)
{
    // The cache claims the lens folder before anything is written, so that
    // whatever lands there is known to be ours.
    const QString lensPath = m_cache->prepareLensPath(m_lensId);
    if (lensPath.isEmpty()) // no usable cache folder
        return QStringLiteral("Failed to save lens archive");
    const QString zipPath = lensPath + QStringLiteral(".zip");
    QDir(lensPath).removeRecursively(); // leftovers of an earlier attempt would spoil the checksum
    QFile zip(zipPath);
    if (!zip.open(QIODevice::WriteOnly) || zip.write(body) != body.size() || !zip.flush()) {
        qCWarning(lcLensAcquire) << "Can't write" << zipPath << zip.errorString();
        zip.remove();
        dropUnusedLensFolder();
        return QStringLiteral("Failed to save lens archive");
    }
    zip.close();
    QString reason;
    const QStringList files = LensArchive(zipPath, m_maxUnpackedBytes).extract(lensPath, &reason);
    if (files.isEmpty()) {
        qCWarning(lcLensAcquire).noquote() << "Lens archive of" << m_lensId << "refused:" << reason;
        QFile::remove(zipPath);
        QDir(lensPath).removeRecursively();
        dropUnusedLensFolder();
        return QStringLiteral("Failed to extract lens archive");
    }
    if (!QFile::remove(zipPath))
        return QStringLiteral("Can't remove lens archive");
    if (!m_cache->add(m_lensId, m_signature, m_hintId))
        return QStringLiteral("Checksum doesn't match for lens archive: %1").arg(m_lensId);
    return QString();
}

// A lens whose archive was refused leaves no empty folder behind.
void NetworkLensAcquireHelper::dropUnusedLensFolder()
{
    if (!m_cache->contains(m_lensId))
        m_cache->remove(m_lensId);
}

void NetworkLensAcquireHelper::finish(const QString &error)
{
    const Stage before = m_stage;
    m_stage = Finished;
    m_deadline->stop();
    const LensId lensId = m_lensId;
    const quint64 generation = m_generation;
    if (error.isEmpty()) {
        emit lensAcquireSucceed(lensId, m_hintId);
        if (before == ArchiveDownloading)
            emit lensDownloadSucceed(lensId);
    } else {
        qCWarning(lcLensAcquire).noquote() << error;
        emit lensAcquireFailed(lensId, error);
        emit lensDownloadFailed(lensId, error);
    }
    if (generation == m_generation) // a receiver may have started the next acquisition
        m_stage = Idle;
}

} // namespace VCam
