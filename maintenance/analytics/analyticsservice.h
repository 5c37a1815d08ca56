#pragma once

#include "actionthrottler.h"
#include "realtimer.h"

#include <QMutex>
#include <QObject>
#include <QString>
#include <atomic>
#include <deque>
#include <ianalyticsservice.h>
#include <map>
#include <vector>

namespace VCam {

class NetworkManager;

// Collects usage events, sends them in batches to the backend's analytics
// endpoint and keeps what is not yet sent across runs in the queue file
// "analytics.proto.bin".
//
// A burst of events leaves as one batch at its start and one when the
// throttle interval ends; a real-time timer sends what is pending at least
// every flush interval. A batch stays in the in-flight table until the
// backend confirms it; a failed batch goes back to the front of the pending
// list (never twice: it left the table) and the queue file is written at
// once. The queue file is read and removed at start, written at a clean
// stop, after a failed upload, and rewritten after a success while it
// exists. At most kMaxPendingEvents wait; beyond that the oldest go.
class AnalyticsService : public QObject, public IAnalyticsService
{
    Q_OBJECT
public:
    using Event = Gale::GlintcameraEvent;
    static constexpr int kThrottleMs = 15000;
    static constexpr qint64 kFlushMs = 600000;
    static constexpr size_t kMaxPendingEvents = 10000;
    static constexpr size_t kMaxBatchEvents = 1000;
    static inline const QString kQueueFileName = QStringLiteral("analytics.proto.bin");
    static inline const QString kSessionFileName = QStringLiteral("analytics.session");

    // folder: where the queue file and the running-session marker live.
    AnalyticsService(NetworkManager *network, const QString &folder, const QString &installationId,
                     QObject *parent = nullptr, int throttleMs = kThrottleMs, qint64 flushMs = kFlushMs);
    ~AnalyticsService() override;

    void start() override;
    void stop(Event lastEvent = Event()) override;
    bool isEnabled() const override { return m_enabled.load(std::memory_order_relaxed); }
    void addEvent(Event event) override;
    void setFavoritesCount(qint32 count) override { m_favoritesCount.store(count); }

    // Switching off drops whatever is pending or stored: the user said no.
    void setEnabled(bool enabled);

    QString sessionId() const { return m_sessionId; }
    QString queuePath() const;
    size_t pendingCount() const;
    size_t inFlightCount() const { return m_inFlight.size(); }

    // The upload body for these events.
    static QByteArray serializeBatch(const std::vector<Event> &events, qint64 sentTs);

public slots:
    // Takes up to kMaxBatchEvents pending events and uploads them.
    void sendPending();
    void onBatchSent(size_t batchIdx);
    void onBatchFailed(size_t batchIdx);

private:
    void fillBase(Event &event) const;
    void trimLocked();
    void storeQueue();
    void reportEarlierCrash();
    void markSessionRunning();
    void discardStored();
    QString sessionMarkerPath() const;

    NetworkManager *m_network;
    QString m_folder;
    QString m_installationId;
    QString m_sessionId;
    ActionThrottler m_throttler;
    RealTimer m_flushTimer;
    mutable QMutex m_mutex; // guards m_pending
    std::deque<Event> m_pending;
    bool m_dropWarned = false; // guarded by m_mutex
    std::map<size_t, std::vector<Event>> m_inFlight;
    size_t m_nextBatch = 0;
    std::atomic<bool> m_enabled{true};
    std::atomic<qint32> m_favoritesCount{0};
    bool m_started = false;
    bool m_stopped = false;
};

} // namespace VCam
