#pragma once

namespace httplib {
class Server;
}

namespace glint::server {

struct ApiContext;

// Receives crash reports: multipart uploads posted to any path under
// "/crash" (the application's crash address is this server by default).
// Each part is written to a file in a folder of its own under
// <data>/crashes/; a row records the path, the parts and the folder.
class CrashSink
{
public:
    static void install(httplib::Server &server, const ApiContext &context);
};

} // namespace glint::server
