#pragma once

#include "lensarchive.h"
#include "lensid.h"

#include <QLoggingCategory>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

Q_DECLARE_LOGGING_CATEGORY(lcLensAcquire)

namespace VCam {

class BundledLenses;
class LensCache;
class NetworkManager;

// Brings one lens onto the disk: asks the backend for the archive link,
// downloads the archive, unpacks it into the lens cache and has the cache
// verify the files against the lens's signature. One lens at a time; a new
// acquisition abandons the one in flight, and answers for an abandoned one
// change nothing.
class NetworkLensAcquireHelper : public QObject
{
    Q_OBJECT
public:
    enum Stage { Idle = 0, LinkRequested = 1, ArchiveDownloading = 2, Finished = 3 };

    NetworkLensAcquireHelper(NetworkManager *network, LensCache *cache, QObject *parent = nullptr);

    // The whole acquisition: a stale lens is dropped and fetched again, a
    // cached lens that still verifies is reported at once without network
    // traffic, anything else goes through the network.
    void acquire(const LensId &lensId);

    // Abandons the acquisition in flight and returns to idle.
    void reset();

    // The next acquisition of lensId discards the cached copy.
    void markStale(const LensId &lensId) { m_staleLenses.insert(lensId); }
    bool isStale(const LensId &lensId) const { return m_staleLenses.contains(lensId); }

    void setMaxUnpackedBytes(qint64 bytes) { m_maxUnpackedBytes = bytes; }
    // The time a whole acquisition (link, download, unpacking) may take.
    static constexpr int kDefaultDeadlineMs = 120000;
    void setDeadline(int ms);
    // Lenses shipped with the program: installed from their own archive
    // when the backend cannot be reached (not owned).
    void setBundledLenses(const BundledLenses *bundled) { m_bundled = bundled; }

    LensId lensId() const { return m_lensId; }
    Stage stage() const { return m_stage; }

signals:
    void lensAcquireSucceed(const LensId &lensId, const QString &hintId);
    void lensAcquireFailed(const LensId &lensId, const QString &error);
    void lensDownloadSucceed(const LensId &lensId);
    void lensDownloadFailed(const LensId &lensId, const QString &error);

private:
    void requestLink();
    void onLinkAnswer(int status, const QByteArray &body, const QString &failure);
    void onArchiveAnswer(const QByteArray &body, const QString &failure);
    QString installArchive(const QByteArray &body);
    void dropUnusedLensFolder();
    void finish(const QString &error);
    bool installBundled();

    NetworkManager *m_network;
    LensCache *m_cache;
    LensId m_lensId = kInvalidLensId;
    QString m_lensUrl;
    QString m_signature;
    QString m_hintId;
    Stage m_stage = Idle;
    QSet<LensId> m_staleLenses;
    quint64 m_generation = 0;
    qint64 m_maxUnpackedBytes = LensArchive::kDefaultMaxUnpackedBytes;
    QTimer *m_deadline;
    const BundledLenses *m_bundled = nullptr;
};

} // namespace VCam
