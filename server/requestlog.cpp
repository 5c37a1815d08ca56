#include "requestlog.h"

#include <cstdio>
#include <ctime>
#include <mutex>

namespace glint::server {

void RequestLog::write(const std::string &client, const std::string &method, const std::string &path,
                       int status, uint64_t bytes)
{
    static std::mutex mutex;
    char stamp[32];
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
    // The path only: queries may carry tokens. Paths were checked to be
    // printable UTF-8; the method is the client's word and is cut short.
    std::lock_guard guard(mutex);
    std::printf("%s %s \"%.16s %.512s\" %d %llu\n", stamp, client.c_str(), method.c_str(), path.c_str(),
                status, static_cast<unsigned long long>(bytes));
    std::fflush(stdout);
}

} // namespace glint::server
