#pragma once

namespace glint::server {

class CrashStore;
class HttpRouter;
struct ApiContext;

// Receives crash reports: multipart uploads posted to any path under
// "/crash" (the application's crash address is this server by default),
// at most --max-crash-body bytes, handed to the CrashStore.
class CrashSink
{
public:
    static void install(HttpRouter &router, const ApiContext &context, CrashStore &store);
};

} // namespace glint::server
