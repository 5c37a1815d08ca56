#include "analyticsqueuefile.h"

#include <QFile>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QtEndian>

Q_LOGGING_CATEGORY(lcAnalyticsQueue, "glint.analytics")

namespace VCam {

void AnalyticsQueueFile::load(const QString &path, std::vector<Event> &events, size_t maxEvents)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcAnalyticsQueue).noquote() << "Failed to load analytics events: " + file.errorString();
        return;
    }
    size_t loaded = 0;
    while (!file.atEnd() && loaded < maxEvents) {
        char sizeBytes[4];
        if (file.read(sizeBytes, 4) != 4) {
            qCWarning(lcAnalyticsQueue) << "Failed to read analytics message size";
            return;
        }
        const qint32 size = qFromLittleEndian<qint32>(sizeBytes);
        if (size < 0) {
            qCWarning(lcAnalyticsQueue) << "Failed to read analytics message size";
            return;
        }
        // Never trust the size further than the bytes that are really there.
        if (size > kMaxRecordBytes || size > file.bytesAvailable()) {
            qCWarning(lcAnalyticsQueue) << "Failed to read analytics message data";
            return;
        }
        const QByteArray data = file.read(size);
        if (data.size() != size) {
            qCWarning(lcAnalyticsQueue) << "Failed to read analytics message data";
            return;
        }
        Event event;
        if (!event.ParseFromArray(data.constData(), data.size()) ||
            event.event_case() == Event::EVENT_NOT_SET) {
            qCWarning(lcAnalyticsQueue) << "Failed to parse stored analytics event";
            continue;
        }
        events.push_back(std::move(event));
        ++loaded;
    }
}

bool AnalyticsQueueFile::write(const QString &path, const std::vector<const Event *> &events)
{
    // Written aside and renamed over the old queue, so a program that stops
    // half-way through leaves the previous queue, never a cut one.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qCWarning(lcAnalyticsQueue).noquote() << "Failed to store analytics events: " + file.errorString();
        return false;
    }
    std::string bytes;
    for (const Event *event : events) {
        bytes.clear();
        event->SerializeToString(&bytes);
        char size[4];
        qToLittleEndian<qint32>(static_cast<qint32>(bytes.size()), size);
        file.write(size, 4);
        file.write(bytes.data(), static_cast<qint64>(bytes.size()));
    }
    if (!file.commit()) {
        qCWarning(lcAnalyticsQueue).noquote() << "Failed to store analytics events: " + file.errorString();
        return false;
    }
    return true;
}

} // namespace VCam
