#pragma once

namespace httplib {
class Server;
}

namespace glint::server {

struct ApiContext;

// The lens catalogue endpoints: featured, top, search, unlock and lookup.
class ExplorerApi
{
public:
    static void install(httplib::Server &server, const ApiContext &context);
};

} // namespace glint::server
