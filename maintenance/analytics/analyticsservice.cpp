#include "analyticsservice.h"

#include "analyticsqueuefile.h"
#include "networkmanager.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QThread>
#include <QUuid>

Q_LOGGING_CATEGORY(lcAnalytics, "glint.analytics")

namespace VCam {

namespace {

// Every event kind carries the same base; this finds it.
Gale::GlintcameraEventBase *baseOf(Gale::GlintcameraEvent &event)
{
    switch (event.event_case()) {
    case Gale::GlintcameraEvent::kLensAction:
        return event.mutable_lens_action()->mutable_glintcamera_event_base();
    case Gale::GlintcameraEvent::kSessionAction:
        return event.mutable_session_action()->mutable_glintcamera_event_base();
    case Gale::GlintcameraEvent::kUserAction:
        return event.mutable_user_action()->mutable_glintcamera_event_base();
    case Gale::GlintcameraEvent::kExtentionAction:
        return event.mutable_extention_action()->mutable_glintcamera_event_base();
    case Gale::GlintcameraEvent::EVENT_NOT_SET:
        break;
    }
    return nullptr;
}

} // namespace

AnalyticsService::AnalyticsService(NetworkManager *network, const QString &folder,
                                   const QString &installationId, QObject *parent, int throttleMs,
                                   qint64 flushMs)
    : QObject(parent), m_network(network), m_folder(folder), m_installationId(installationId),
      m_sessionId(QUuid::createUuid().toString(QUuid::WithoutBraces)),
      m_throttler(throttleMs, ActionThrottler::Plain), m_flushTimer(flushMs)
{
    connect(&m_throttler, &ActionThrottler::triggered, this, &AnalyticsService::sendPending);
    connect(&m_flushTimer, &RealTimer::timeout, &m_throttler, &ActionThrottler::trigger);
    connect(m_network, &NetworkManager::analyticsReportSent, this, &AnalyticsService::onBatchSent);
    connect(m_network, &NetworkManager::analyticsReportSendFailed, this, &AnalyticsService::onBatchFailed);
    // After the computer slept, the flush comes as soon as the program is
    // active again instead of a whole interval later.
    if (auto *application = qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        connect(application, &QGuiApplication::applicationStateChanged, &m_flushTimer,
                &RealTimer::onApplicationStateChanged);
}

AnalyticsService::~AnalyticsService() = default;

QString AnalyticsService::queuePath() const
{
    return QDir(m_folder).filePath(kQueueFileName);
}

QString AnalyticsService::sessionMarkerPath() const
{
    return QDir(m_folder).filePath(kSessionFileName);
}

size_t AnalyticsService::pendingCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_pending.size();
}

void AnalyticsService::start()
{
    if (m_started)
        return;
    m_started = true;
    if (!isEnabled()) {
        discardStored();
        return;
    }
    QDir().mkpath(m_folder);
    if (QFile::exists(queuePath())) {
        std::vector<Event> stored;
        AnalyticsQueueFile::load(queuePath(), stored, kMaxPendingEvents);
        QFile::remove(queuePath());
        QMutexLocker lock(&m_mutex);
        for (Event &event : stored)
            m_pending.push_back(std::move(event));
        trimLocked();
        qCInfo(lcAnalytics) << "Loaded" << stored.size() << "queued analytics events";
    }
    reportEarlierCrash();
    markSessionRunning();
    m_flushTimer.start();
    if (pendingCount() > 0)
        m_throttler.trigger();
}

void AnalyticsService::stop(Event lastEvent)
{
    if (m_stopped)
        return;
    m_stopped = true;
    m_flushTimer.stop();
    if (!isEnabled())
        return;
    if (lastEvent.event_case() != Event::EVENT_NOT_SET) {
        fillBase(lastEvent);
        QMutexLocker lock(&m_mutex);
        m_pending.push_back(std::move(lastEvent));
        trimLocked();
    }
    storeQueue();
    QFile::remove(sessionMarkerPath());
}

// A marker that is still there at start belongs to a run that never reached
// its clean stop.
void AnalyticsService::reportEarlierCrash()
{
    QFile marker(sessionMarkerPath());
    if (!marker.open(QIODevice::ReadOnly))
        return;
    const QString earlier = QString::fromLatin1(marker.read(64)).trimmed();
    marker.close();
    Event event;
    auto *session = event.mutable_session_action();
    session->set_glint_camera_session(Gale::SESSION_CRASH);
    auto *base = session->mutable_glintcamera_event_base();
    base->set_client_ts(QDateTime::currentMSecsSinceEpoch());
    // The crash belongs to the earlier session; name it when the marker
    // holds a session id of ours.
    static const QRegularExpression uuid(QStringLiteral("^[0-9a-f-]{36}$"));
    if (uuid.match(earlier).hasMatch())
        base->set_app_session_id(earlier.toStdString());
    addEvent(std::move(event));
}

void AnalyticsService::markSessionRunning()
{
    QFile marker(sessionMarkerPath());
    if (marker.open(QIODevice::WriteOnly | QIODevice::Truncate))
        marker.write(m_sessionId.toLatin1());
}

void AnalyticsService::discardStored()
{
    QFile::remove(queuePath());
    QFile::remove(sessionMarkerPath());
}

void AnalyticsService::setEnabled(bool enabled)
{
    if (m_enabled.exchange(enabled) == enabled)
        return;
    if (!m_started || m_stopped)
        return;
    if (enabled) {
        QDir().mkpath(m_folder);
        markSessionRunning();
        m_flushTimer.start();
        return;
    }
    m_flushTimer.stop();
    {
        QMutexLocker lock(&m_mutex);
        m_pending.clear();
    }
    m_inFlight.clear();
    discardStored();
}

void AnalyticsService::fillBase(Event &event) const
{
    Gale::GlintcameraEventBase *base = baseOf(event);
    if (!base)
        return;
    if (base->app_session_id().empty())
        base->set_app_session_id(m_sessionId.toStdString());
    base->set_installation_id(m_installationId.toStdString());
    base->set_app_type(Gale::GLINTCAMERA);
    if (event.has_lens_action())
        event.mutable_lens_action()->set_num_lens_in_favorites(m_favoritesCount.load());
}

void AnalyticsService::addEvent(Event event)
{
    if (!isEnabled() || m_stopped || event.event_case() == Event::EVENT_NOT_SET)
        return;
    fillBase(event);
    {
        QMutexLocker lock(&m_mutex);
        m_pending.push_back(std::move(event));
        trimLocked();
    }
    if (QThread::currentThread() == thread())
        m_throttler.trigger();
    else
        QMetaObject::invokeMethod(&m_throttler, &ActionThrottler::trigger, Qt::QueuedConnection);
}

void AnalyticsService::trimLocked()
{
    if (m_pending.size() <= kMaxPendingEvents)
        return;
    const size_t excess = m_pending.size() - kMaxPendingEvents;
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(excess));
    // Said once until the backend takes a batch again, not once per event.
    if (!m_dropWarned)
        qCWarning(lcAnalytics) << "Analytics queue full; the oldest events are dropped";
    m_dropWarned = true;
}

QByteArray AnalyticsService::serializeBatch(const std::vector<Event> &events, qint64 sentTs)
{
    Gale::GlintcameraEventBatch batch;
    batch.set_format_version(1);
    batch.set_sent_ts(sentTs);
    batch.mutable_events()->Reserve(static_cast<int>(events.size()));
    for (const Event &event : events)
        *batch.add_events() = event;
    std::string bytes;
    batch.SerializeToString(&bytes);
    return QByteArray(bytes.data(), static_cast<int>(bytes.size()));
}

void AnalyticsService::sendPending()
{
    if (!isEnabled() || m_stopped)
        return;
    std::vector<Event> events;
    bool more = false;
    {
        QMutexLocker lock(&m_mutex);
        const size_t count = std::min(m_pending.size(), kMaxBatchEvents);
        events.reserve(count);
        for (size_t i = 0; i < count; ++i)
            events.push_back(std::move(m_pending[i]));
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(count));
        more = !m_pending.empty();
    }
    if (events.empty())
        return;
    const QByteArray body = serializeBatch(events, QDateTime::currentMSecsSinceEpoch());
    const size_t batchIdx = m_nextBatch++;
    m_inFlight.emplace(batchIdx, std::move(events));
    m_network->sendAnalyticsBatch(body, batchIdx);
    if (more)
        m_throttler.trigger(); // the rest leaves when the interval ends
}

void AnalyticsService::onBatchSent(size_t batchIdx)
{
    if (m_inFlight.erase(batchIdx) == 0)
        return;
    {
        QMutexLocker lock(&m_mutex);
        m_dropWarned = false;
    }
    // A queue file written after an earlier failure (or at stop, while this
    // batch was still out) must not bring back events that have left since.
    if (QFile::exists(queuePath())) {
        if (pendingCount() == 0 && m_inFlight.empty())
            QFile::remove(queuePath());
        else
            storeQueue();
    }
}

void AnalyticsService::onBatchFailed(size_t batchIdx)
{
    const auto it = m_inFlight.find(batchIdx);
    if (it == m_inFlight.end())
        return;
    std::vector<Event> events = std::move(it->second);
    m_inFlight.erase(it);
    qCWarning(lcAnalytics) << "Analytics batch of" << events.size() << "events not sent; kept for later";
    {
        QMutexLocker lock(&m_mutex);
        // Older than anything pending: back to the front, in their order.
        m_pending.insert(m_pending.begin(), std::make_move_iterator(events.begin()),
                         std::make_move_iterator(events.end()));
        trimLocked();
    }
    storeQueue();
}

void AnalyticsService::storeQueue()
{
    std::vector<Event> all;
    for (const auto &[idx, events] : m_inFlight)
        all.insert(all.end(), events.begin(), events.end());
    {
        QMutexLocker lock(&m_mutex);
        all.insert(all.end(), m_pending.begin(), m_pending.end());
    }
    if (all.size() > kMaxPendingEvents)
        all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(kMaxPendingEvents));
    if (all.empty()) {
        QFile::remove(queuePath());
        return;
    }
    QDir().mkpath(m_folder);
    AnalyticsQueueFile::store(queuePath(), all);
}

} // namespace VCam
