#pragma once

namespace Orb {

// Limits for a tracking session started by CoreManager::restartTracking: how
// long the tracker keeps searching for a face while none is tracked, and how
// long it keeps tracking at all, both in seconds from the restart. The largest
// float means "no limit".
struct TrackingRequestInfo
{
    float maxSearchSeconds = 3.4028235e38f;
    float maxTrackingSeconds = 3.4028235e38f;
};

} // namespace Orb
