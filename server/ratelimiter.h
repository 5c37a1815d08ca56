#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

namespace glint::server {

// A token bucket per client: each client may make `burst` requests at once
// and `ratePerSecond` requests per second after that. A rate of 0 allows
// everything.
class RateLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    RateLimiter(double ratePerSecond, int burst) : m_rate(ratePerSecond), m_burst(burst) {}

    bool allow(const std::string &client) { return allow(client, Clock::now()); }
    bool allow(const std::string &client, Clock::time_point now);

private:
    struct Bucket
    {
        double tokens;
        Clock::time_point updated;
    };

    void forgetIdleClients(Clock::time_point now);

    double m_rate;
    double m_burst;
    std::mutex m_mutex;
    std::unordered_map<std::string, Bucket> m_buckets;
};

} // namespace glint::server
