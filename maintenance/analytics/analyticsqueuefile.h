#pragma once

#include <QString>
#include <glintcamera_events.pb.h>
#include <vector>

namespace VCam {

// The analytics queue on disk: one record per event, each a signed 32-bit
// little-endian size followed by that many bytes of the serialised event.
// Reading stops at the first size or data that is not whole, keeping every
// complete record before it; no record larger than kMaxRecordBytes or than
// what is left of the file is ever allocated.
class AnalyticsQueueFile
{
public:
    using Event = com::parlo::analytics::gale::GlintcameraEvent;
    static constexpr qint32 kMaxRecordBytes = 4096; // events are about 100 bytes

    // Appends at most maxEvents events from the file to events. A missing
    // or unreadable file logs "Failed to load analytics events: " and the
    // reason, and adds nothing.
    static void load(const QString &path, std::vector<Event> &events, size_t maxEvents);
    // Replaces the file with the events. False (and a logged warning
    // "Failed to store analytics events: " with the reason) when it could
    // not be written.
    template <typename Range> static bool store(const QString &path, const Range &events);

private:
    static bool write(const QString &path, const std::vector<const Event *> &events);
};

template <typename Range> bool AnalyticsQueueFile::store(const QString &path, const Range &events)
{
    std::vector<const Event *> pointers;
    for (const Event &event : events)
        pointers.push_back(&event);
    return write(path, pointers);
}

} // namespace VCam
