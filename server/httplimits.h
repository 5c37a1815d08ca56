#pragma once

#include <cstddef>

namespace glint::server {

// What one client, and all clients together, may cost the server. Each is
// a server option (see ServerConfig and docs/server.md).
struct HttpLimits
{
    unsigned maxConnections = 1000;
    unsigned maxConnectionsPerAddress = 32;
    size_t connectionMemory = 32 * 1024; // request line, headers and I/O buffers of one connection
    unsigned maxHeaders = 64;
    size_t maxTargetBytes = 4096;                // request line target (path and query)
    size_t maxBufferedBodies = 32 * 1024 * 1024; // bodies held in memory at once, all requests
    unsigned idleTimeoutSeconds = 15;
    unsigned headerTimeoutSeconds = 10;
    unsigned bodyTimeoutSeconds = 30;
    unsigned threads = 4;
};

} // namespace glint::server
