#include "ratelimiter.h"

#include <algorithm>

namespace glint::server {

namespace {
constexpr size_t kPruneAbove = 10000;
}

bool RateLimiter::allow(const std::string &client, Clock::time_point now)
{
    if (m_rate <= 0)
        return true;
    std::lock_guard guard(m_mutex);
    if (m_buckets.size() > kPruneAbove)
        forgetIdleClients(now);
    auto [it, inserted] = m_buckets.try_emplace(client, Bucket{m_burst, now});
    Bucket &bucket = it->second;
    if (!inserted) {
        const double elapsed = std::chrono::duration<double>(now - bucket.updated).count();
        bucket.tokens = std::min(m_burst, bucket.tokens + std::max(0.0, elapsed) * m_rate);
        bucket.updated = now;
    }
    if (bucket.tokens < 1.0)
        return false;
    bucket.tokens -= 1.0;
    return true;
}

// A client whose bucket has refilled is indistinguishable from a new one.
void RateLimiter::forgetIdleClients(Clock::time_point now)
{
    for (auto it = m_buckets.begin(); it != m_buckets.end();) {
        const double elapsed = std::chrono::duration<double>(now - it->second.updated).count();
        if (it->second.tokens + elapsed * m_rate >= m_burst)
            it = m_buckets.erase(it);
        else
            ++it;
    }
}

} // namespace glint::server
