#include "requestlog.h"

#include <cstdio>
#include <ctime>
#include <httplib.h>
#include <mutex>

namespace glint::server {

void RequestLog::write(const httplib::Request &req, const httplib::Response &res)
{
    static std::mutex mutex;
    char stamp[32];
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
    // The path only: queries may carry tokens.
    std::lock_guard guard(mutex);
    std::printf("%s %s \"%s %s\" %d %zu\n", stamp, req.remote_addr.c_str(), req.method.c_str(),
                req.path.c_str(), res.status, res.body.size());
    std::fflush(stdout);
}

} // namespace glint::server
